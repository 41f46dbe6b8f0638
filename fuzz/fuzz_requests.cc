#include "requests.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t n)
{
    faxtray::fuzz_requests(bytes, n);
    return 0;
}
