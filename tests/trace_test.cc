#include "util/trace.h"

#include <fnmatch.h>
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

    void set_config(const std::string &text, bool newer = true)
    {
        set_mtime(home_.write("TRACES", text), newer ? ++mtime_ : mtime_);
    }
    int switch_to(const std::string &text)
    {
        set_config(text);
        return open_trace_file("faxtrayd");
    }
    bool made(const char *name) const { return access((work_ / name).c_str(), F_OK) == 0; }

    temp_dir home_, work_;
    time_t mtime_ = 1000000000;

private:
    scoped_env env_;
};

TEST_F(TraceTest, ALineSaysWhetherAndWhere)
{
    const std::string longest(127, 'w');
    const struct {
        std::string config, file;  // "" when it stays off
    } rows[] = {
        {"faxtrayd\n", "trace_faxtrayd"},
        {"faxtrayd - - -\n", "trace_faxtrayd"},
        {"faxtrayd OFF\n", ""},
        {"faxtrayd no\n", "trace_faxtrayd"},
        {"faxtrayd off", "trace_faxtrayd"},  // read as "of"
        {"#faxtrayd on\nx\n\nfaxtrayd on log\n", "trace_log"},
        {"faxregd on\nFaxtrayd on\n", ""},
        {"  faxtrayd\ton   log append ignored and more\n", "trace_log"},
        {"faxtrayd on " + longest + "cut\n", "trace_" + longest},
        {std::string(1022, '#') + "faxtrayd\nfaxtrayd on long\n", "trace_long"},
    };
    for (const auto &row : rows) {
        ASSERT_EQ(switch_to("faxtrayd off\n"), 1);
        ASSERT_EQ(tr_is_trace_on(), 0);
        EXPECT_EQ(switch_to(row.config), 1) << row.config;
        EXPECT_EQ(tr_is_trace_on(), !row.file.empty()) << row.config;
        if (!row.file.empty()) {
            EXPECT_TRUE(made(row.file.c_str())) << row.config;
            unlink((work_ / row.file.c_str()).c_str());
        }
    }
}

TEST_F(TraceTest, LinesBearTheTime)
{
    trprintf("before\n");
    ASSERT_EQ(switch_to("faxtrayd\n"), 1);
    trprintf("%s=%d\n", "a", 1);
    tr_puts("100%s\n");
    tr_write("raw", 3);
    EXPECT_EQ(tr_putc('\n'), '\n');
    tr_set_toggle_on(0);
    trprintf("mute\n");
    EXPECT_EQ(tr_putc('x'), 'x');
    EXPECT_FALSE(tr_writing());
    tr_set_toggle_on(1);
    trace_print_date();
    tr_putc('\n');
    const char form[] = "[0-2][0-9]:[0-5][0-9]:[0-6][0-9] a=1\n[0-2][0-9]:[0-5][0-9]:[0-6][0-9] 100%s\nraw\n"
                        "[ 1-3][0-9]-[A-Z][a-z][a-z]-[0-9][0-9][0-9][0-9] \n";
    EXPECT_EQ(fnmatch(form, read_file(work_ / "trace_faxtrayd").c_str(), 0), 0);
}

TEST_F(TraceTest, TheModeContinuesOrBeginsAnew)
{
    const std::string file = work_.write("log", "old\n");
    ASSERT_EQ(switch_to("faxtrayd on " + file + " append\n"), 1);
    tr_write("new\n", 4);
    EXPECT_EQ(read_file(file), "old\nnew\n");
    ASSERT_EQ(switch_to("faxtrayd on other\n"), 1);
    EXPECT_EQ(read_file(file), "old\nnew\n") << "a change of files is not told in the file given up";
    ASSERT_EQ(switch_to("faxtrayd off\n"), 1);
    EXPECT_NE(read_file(work_ / "trace_other").find("open_trace_file: Closing trace file before rescaning\n"),
              std::string::npos);
    ASSERT_EQ(switch_to("faxtrayd on " + file + " Overwrite\n"), 1);
    EXPECT_EQ(read_file(file), "");
}

TEST_F(TraceTest, AnUnchangedFileChangesNothing)
{
    ASSERT_EQ(switch_to("faxtrayd on\n"), 1);
    set_config("faxtrayd off\n", false);
    EXPECT_EQ(open_trace_file("faxtrayd"), 1);
    EXPECT_EQ(tr_is_trace_on(), 1);
    unlink((home_ / "TRACES").c_str());
    EXPECT_EQ(open_trace_file("faxtrayd"), 1);
    EXPECT_EQ(tr_is_trace_on(), 0) << "a vanished file switches off";
    set_config("faxtrayd on\n", false);
    EXPECT_EQ(open_trace_file("faxtrayd"), 1);
    EXPECT_EQ(tr_is_trace_on(), 1) << "and is read when it returns, whatever its time";

    FILE *first = tr_get_file_pointer();
    ASSERT_EQ(switch_to("faxtrayd on\n"), 1);
    EXPECT_NE(tr_get_file_pointer(), first) << "a newer one opens the same file once more";
}

TEST_F(TraceTest, AFileThatCannotBeOpenedLeavesTracingOff)
{
    ASSERT_EQ(switch_to("faxtrayd on\n"), 1);
    capture_stderr printed;
    EXPECT_EQ(switch_to("faxtrayd on /nonexistent/log\n"), 0);
    EXPECT_EQ(printed.text(),
              "open_trace_file:  Couldn't open trace file '/nonexistent/log', using stdout, errno=2\n");
    EXPECT_EQ(tr_is_trace_on(), 0);
    trprintf("nowhere\n");
}

TEST_F(TraceTest, StandardErrorIsNeverClosed)
{
    EXPECT_EXIT(
        {
            switch_to("faxtrayd on stderr\n");
            trprintf("traced\n");
            switch_to("faxtrayd off\n");
            fprintf(stderr, "still open\n");
            exit(0);
        },
        testing::ExitedWithCode(0), "^..:..:.. traced\nstill open\n$");
}

TEST_F(TraceTest, ClosingLeavesTraceOnSet)
{
    EXPECT_EXIT(
        {
            switch_to("faxtrayd on\n");
            tr_close();
            bool refused = !tr_init("a", "b");
            exit(refused && tr_is_trace_on() && !tr_get_file_pointer() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(tr_init("a", "b"), 0) << "already initialised";
    tr_close();
    EXPECT_EQ(tr_init("", "b"), 0);
    EXPECT_EQ(tr_init("a", nullptr), 0);
    capture_stderr printed;
    EXPECT_EQ(open_trace_file("faxtrayd"), 0);
    EXPECT_EQ(printed.text(), "open_trace_file:  Traces have not been properly initialized\n");
    ASSERT_EQ(tr_init(home_.path().c_str(), work_.path().c_str()), 1);
}

// TRACES beside the executable, a program started by a path, an output word that is a path too.
TEST_F(TraceTest, TraceconfigTellsTheSearch)
{
    set_config("bin/tool on bin/log\n");
    scoped_env no_home("ONDRIXHOME", "/nonexistent"), debug("TRACECONFIG", "");
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            open_trace_file("bin/tool");
            exit(made("trace_bin_tool") ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "^check_trace_config_file\\('bin/tool'\\)\n"
        "looking for file '/nonexistent/TRACES'\nlooking for file '.*/TRACES'\n"
        "found trace config line 'bin/tool on bin/log'\nopen_trace_file\\(bin_tool\\): ret=0\n"
        "open_trace_file\\(bin_tool\\): 1 on_off=\"on\"\nopen_trace_file\\(bin_tool\\): Trace_on\n"
        "trace file is '.*/trace_bin_tool'\n$");
}

}  // namespace faxtray
