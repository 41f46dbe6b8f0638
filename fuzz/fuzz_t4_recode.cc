#include "t4_decoders.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t n)
{
    faxtray::fuzz_t4_recode(bytes, n);
    return 0;
}
