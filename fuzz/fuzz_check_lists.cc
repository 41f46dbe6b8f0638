#include "check_lists.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t n)
{
    faxtray::fuzz_check_lists(bytes, n);
    return 0;
}
