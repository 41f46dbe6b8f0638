#include "support/registry.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <rpc/pmap_clnt.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <csignal>

#include "registry/regd_client.h"
#include "support/wait_for.h"

namespace faxtray {

running_registry::running_registry(const site &at) : site_(at)
{
    EXPECT_EQ(start().status, 0) << said();
}

running_registry::~running_registry()
{
    end(SIGTERM);
}

ended_t running_registry::start() const
{
    const std::string files = " -U " + site_ / "USER_LIST.info" + " -M " + site_ / "MODEMS.info";
    return run_shell(FAXREGD + files + " 2>>" + site_ / "regd_log");
}

void running_registry::end(int sig) const
{
    run_shell("kill -" + std::to_string(sig) + " $(pidof faxregd)");
    EXPECT_TRUE(wait_for([] { return run_shell("pidof faxregd").status != 0; }));
}

std::string running_registry::said() const
{
    return read_file(site_ / "regd_log");
}

false_registry::false_registry() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    struct sockaddr_in address = {};
    socklen_t length = sizeof address;
    EXPECT_EQ(listen(listener_.get(), 8), 0);
    EXPECT_EQ(getsockname(listener_.get(), reinterpret_cast<struct sockaddr *>(&address), &length), 0);
    const pid_t child = fork();  // since libtirpc leaks on the way
    if (child == 0)
        _exit(!pmap_set(REGD_PROG_BASE + 1, REGD_VERS, IPPROTO_TCP, ntohs(address.sin_port)));
    int status = 1;
    EXPECT_TRUE(waitpid(child, &status, 0) == child && status == 0) << "cannot be registered";
}

false_registry::~false_registry()
{
    EXPECT_EQ(run_shell("rpcinfo -d 351165 1").status, 0);
}

unique_fd false_registry::let_in() const
{
    return unique_fd(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
}

int false_registry::count_clients() const
{
    int count = 0;
    for (struct pollfd waiting = {listener_.get(), POLLIN, 0}; poll(&waiting, 1, 0) == 1; count++)
        let_in();
    return count;
}

}  // namespace faxtray
