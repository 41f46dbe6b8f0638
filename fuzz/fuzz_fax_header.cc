#include "fax_header.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t n)
{
    faxtray::fuzz_fax_header(bytes, n);
    return 0;
}
