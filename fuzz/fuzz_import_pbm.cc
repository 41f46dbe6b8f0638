#include "import.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t n)
{
    faxtray::fuzz_import_pbm(bytes, n);
    return 0;
}
