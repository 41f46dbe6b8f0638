#include "log/log_callback.h"

#include <gtest/gtest.h>
#include <signal.h>

#include "support/capture.h"
#include "support/temp_dir.h"

namespace faxtray {

TEST(LogCallback, GetsTypeAndTextPrintedAsAFormat)
{
    const temp_dir dir;
    const std::string command = "exec >'" + (dir / "told") + "'; cat; echo type";
    EXPECT_EQ(run_log_callbacks(command.c_str(), 2, "lost [%s]: %d of 100%%%n\n"), 1);
    EXPECT_EQ(read_file(dir / "told"), "lost [(null)]: 0 of 100%\ntype 2\n");
}

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
