// The service tests: what clients and administrators see of a real faxtrayd beside a real rpcbind.
// They run on a private host, so they need root; ctest counts them as skipped without.
#include <gtest/gtest.h>

#include <cstring>

#include "support/private_host.h"

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();
    return faxtray::run_on_private_host([] { return RUN_ALL_TESTS(); });
}
