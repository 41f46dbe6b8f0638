// The service tests: what clients and administrators see of a real faxtrayd beside a real rpcbind.
// They run on a private host, so they need root; ctest counts them as skipped without.
#include <gtest/gtest.h>

#include <cstdlib>

#include "support/private_host.h"

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();
    // For sanitized daemons: signals stay ours, and stacks are whole, so that suppressions find theirs.
    setenv("ASAN_OPTIONS", "handle_segv=0:handle_sigbus=0:fast_unwind_on_malloc=0", 0);
    setenv("LSAN_OPTIONS", "print_suppressions=0:suppressions=" SUPPRESSIONS, 0);
    return faxtray::run_on_private_host([] { return RUN_ALL_TESTS(); });
}
