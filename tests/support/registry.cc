#include "support/registry.h"

#include <gtest/gtest.h>

#include <csignal>

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

}  // namespace faxtray
