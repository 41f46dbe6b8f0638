#include "util/trace.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "support/capture.h"

namespace faxtray {

// Tracing initialised in directories of its own, each TRACES newer than the one before.
class TraceTest : public testing::Test {
protected:
    TraceTest() : env_("ONDRIXHOME", home_.path().c_str())
    {
        if (!tr_init(home_.path().c_str(), work_.path().c_str()))
            abort();
    }
    ~TraceTest() override
    {
        switch_to("faxtrayd off\n");  // tr_close alone leaves Trace_on set
        tr_close();
    }

    int switch_to(const std::string &text, bool newer = true)
    {
        set_mtime(home_.write("TRACES", text), newer ? ++mtime_ : mtime_);
        return open_trace_file("faxtrayd");
    }

    temp_dir home_, work_;
    time_t mtime_ = 1000000000;

private:
    scoped_env env_;
};

TEST_F(TraceTest, ALineSaysWhetherAndWhere)
{
    const std::pair<std::string, std::string> rows[] = {
        // the file made, "" when it stays off
        {"faxtrayd OFF\n", ""},
        {"faxtrayd off", "trace_faxtrayd"},
        {"#faxtrayd on\nx\n\nfaxtrayd on log\n", "trace_log"},
        {"  faxtrayd\ton   log append ignored and more\n", "trace_log"},
        {"faxtrayd on " + std::string(127, 'w') + "cut\n", "trace_" + std::string(127, 'w')},
        {std::string(1022, '#') + "faxtrayd\nfaxtrayd on long\n", "trace_long"}};
    for (const auto &[config, file] : rows) {
        ASSERT_EQ(switch_to("faxtrayd off\n"), 1);
        EXPECT_EQ(switch_to(config), 1) << config;
        EXPECT_EQ(tr_is_trace_on(), !file.empty()) << config;
        EXPECT_EQ(unlink((work_ / file.c_str()).c_str()) == 0, !file.empty()) << config;
    }
}

TEST_F(TraceTest, TheModeContinuesOrBeginsAnew)
{
    const std::string file = work_.write("log", "old\n");
    switch_to("faxtrayd on " + file + " append\n");
    tr_write("new\n", 4);
    switch_to("faxtrayd on other\n");
    EXPECT_EQ(read_file(file), "old\nnew\n") << "a change of files is not told in the file given up";
    switch_to("faxtrayd on " + file + " Overwrite\n");
    EXPECT_EQ(read_file(file), "");
    capture_stderr quiet;
    EXPECT_EQ(switch_to("faxtrayd on /nonexistent/log\n"), 0);
}

TEST_F(TraceTest, AnUnchangedFileChangesNothing)
{
    switch_to("faxtrayd on\n");
    switch_to("faxtrayd off\n", false);
    EXPECT_EQ(tr_is_trace_on(), 1);
    unlink((home_ / "TRACES").c_str());
    open_trace_file("faxtrayd");
    EXPECT_EQ(tr_is_trace_on(), 0) << "a vanished file switches off";
    switch_to("faxtrayd on\n", false);
    EXPECT_EQ(tr_is_trace_on(), 1) << "and is read when it returns, whatever its time";
}

TEST_F(TraceTest, LinesBearTheTimeAndClosingLeavesStandardErrorAndTraceOn)
{
    EXPECT_EXIT(
        {
            switch_to("faxtrayd on stderr\n");
            trprintf("%s=%d\n", "a", 1);
            tr_puts("100%s\n");
            trace_print_date();
            switch_to("faxtrayd off\n");
            fprintf(stderr, "still open\n");
            switch_to("faxtrayd on\n");
            exit(tr_close() && !tr_init("a", "b") && tr_is_trace_on() ? 0 : 1);  // kept: still on
        },
        testing::ExitedWithCode(0),
        "^..:..:.. a=1\n..:..:.. 100%s\n[ 1-3][0-9]-[A-Z][a-z][a-z]-[0-9]{4} still open\n$");
}

}  // namespace faxtray
