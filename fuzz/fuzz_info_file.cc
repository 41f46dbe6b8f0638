#include "info_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t n)
{
    faxtray::fuzz_info_file(bytes, n);
    return 0;
}
