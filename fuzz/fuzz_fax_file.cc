#include "fax_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t n)
{
    faxtray::fuzz_fax_file(bytes, n);
    return 0;
}
