#include "web_request.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t n)
{
    faxtray::fuzz_web_request(bytes, n);
    return 0;
}
