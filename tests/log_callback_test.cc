#include "log/log_callback.h"

#include <gtest/gtest.h>
#include <signal.h>

#include "support/capture.h"

namespace faxtray {

// That the command gets its type and text, the scenario "exceptions" shows.
TEST(LogCallback, FailureIsTracedAndNoMore)
{
    const trace_on trace;
    signal(SIGPIPE, SIG_IGN);
    const std::string more_than_a_pipe_holds(200'000, 'x');
    EXPECT_EQ(run_log_callbacks("exit 0;", 1, more_than_a_pipe_holds.c_str()), 1);
    EXPECT_EQ(run_log_callbacks("exit 3;", 0, ""), 0);
    EXPECT_EQ(run_log_callbacks("kill -9 $$;", 2, ""), 0);
    EXPECT_EQ(run_log_callbacks("true", 3, ""), 0);
    signal(SIGPIPE, SIG_DFL);
    EXPECT_EQ(trace.text(), "run_log_callbacks: \"exit 3; 0\" exited with code 3\n"
                            "run_log_callbacks: \"kill -9 $$; 2\" terminated abnormally.\n"
                            "run_log_callbacks: Invalid log_type: 3.\n");
}

}  // namespace faxtray
