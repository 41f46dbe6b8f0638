// What no client can bring about: the library that cannot free what it has decoded.
#include "daemon/dispatcher.h"

#include <gtest/gtest.h>

namespace faxtray {

TEST(Dispatcher, EndsTheProcessWhenMemoryCannotBeFreed)
{
    struct __rpc_svcxprt::xp_ops calls = {};
    calls.xp_getargs = [](SVCXPRT *, xdrproc_t, void *) { return TRUE; };
    calls.xp_reply = [](SVCXPRT *, rpc_msg *) { return TRUE; };
    calls.xp_freeargs = [](SVCXPRT *, xdrproc_t, void *) { return FALSE; };
    SVCXPRT transport = {};
    transport.xp_ops = &calls;
    svc_req request = {};
    request.rq_proc = 1;
    EXPECT_EXIT(in_prog_1(&request, &transport), testing::ExitedWithCode(1), "");
}

}  // namespace faxtray
