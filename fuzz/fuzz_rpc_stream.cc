#include "rpc_stream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t n)
{
    faxtray::fuzz_rpc_stream(bytes, n);
    return 0;
}
