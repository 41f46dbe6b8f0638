// Starting, running and ending: what administrators see.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "requests.h"
#include "support/daemon.h"
#include "support/private_host.h"
#include "support/wait_for.h"

namespace faxtray {

TEST(Life, OptionsAnswerOrRefuse)
{
    const std::string usage = read_file(TEST_DATA "/usage.ref");
    const struct {
        std::vector<std::string> args;
        int status;
        std::string output;
    } rows[] = {
        {{"-h"}, 0, usage},
        {{"-x", "-h"}, 0, "faxtrayd: Warning: faxtrayd may be out of date\n" + usage},
        {{"-d", "abc", "-h"}, 0, "faxtrayd: Bad delay: [abc].\n" + usage},
        {{"-M"}, 10, "faxtrayd: Missing arg for -M\n"},
        {{"-l"}, 10, "faxtrayd: Missing arg for -p\n"},
        {{"-f", "-W", "nowhere"}, 10, "faxtrayd: cv_open(nowhere/trayd_log): No such file or directory\n"},
    };
    site s;
    for (const auto &row : rows) {
        ended_t ended = run_faxtrayd(s, row.args);
        EXPECT_EQ(ended.status, row.status) << row.args[0];
        EXPECT_EQ(ended.output, row.output) << row.args[0];
    }
    ended_t revision = run_faxtrayd(s, {"-rev"});
    EXPECT_EQ(revision.status, 0);
    EXPECT_TRUE(revision.output.starts_with("Faxtrayd             "));
}

TEST(Life, EndsOnSignalsAndTellsWhy)
{
    const std::string started = "faxtrayd: Trayd version [%Z%|%M%|%R%|0|%L%|%B%|%S%|%G%|%U%] started\n";
    const struct {
        int sig, status;
        std::string line;
    } rows[] = {
        {SIGTERM, 0, "Trayd: Interrupted: signal [15]\nTrayd: Shutting down...\n"},
        {SIGUSR2, 0, "Trayd: Interrupted: signal [12]\nTrayd: Shutting down...\n"},
        {SIGSEGV, 10, "Trayd: Internal failure: [SIGSEGV]\n"},
    };
    for (const auto &row : rows) {
        site s;
        running_daemon daemon(s);
        EXPECT_EQ(daemon.stop(row.sig), row.status) << row.line;
        EXPECT_EQ(daemon.log(), started + row.line);
    }
    site s;
    running_daemon daemon(s, {"-D"});
    EXPECT_EQ(daemon.stop(SIGSEGV), 1000 + SIGSEGV);  // debugging mode leaves it to the debugger
}

TEST(Life, SignalsThatDoNotEndIt)
{
    site s;
    s.add(s.inbox("alsmith"), ".inbox_index", "");
    s.add(s.inbox("bea"), ".inbox_index", "");
    running_daemon daemon(s);
    daemon.signal(SIGHUP);
    daemon.signal(SIGCHLD);
    EXPECT_TRUE(daemon.logs("sa_child: waitpid: No child processes.\n"));
    EXPECT_EQ(call(9, al).code(), 0);

    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(names_in(s.inbox("alsmith")), ".inbox_index");
    EXPECT_EQ(names_in(s.inbox("bea")), "") << "never loaded: no marker stays";
}

TEST(Life, OneRunsOnAHostAndStartsAgainAfterAKill)
{
    site s;
    running_daemon daemon(s);
    ended_t second = run_faxtrayd(s, {"-f", "-W", "work"});
    EXPECT_EQ(second.status, 10);
    EXPECT_EQ(second.output, "faxtrayd: The inbox server is already running on localhost\n");
    EXPECT_TRUE(daemon_answers());

    EXPECT_EQ(daemon.stop(SIGKILL), 1000 + SIGKILL);
    running_daemon again(s);  // despite the old registration
    EXPECT_EQ(call(9, al).code(), 0);
    EXPECT_NE(run_shell("rpcinfo -p").output.find("\n    351229    1   tcp "), std::string::npos);
}

TEST(Life, NeedsAPortMapper)
{
    site s;
    stop_port_mapper();
    EXPECT_EQ(run_faxtrayd(s, {"-f", "-W", "work"}).status, 10);
    EXPECT_EQ(read_file(s / "work/trayd_log"), "faxtrayd: Can't create service: Connection refused\n");
    start_port_mapper();
}

TEST(Life, DetachesFromTheTerminal)
{
    site s;
    ended_t parent =
        run_faxtrayd(s, {"-W", "work", "-U", "USER_LIST.info", "-M", "MODEMS.info", "-l", "own_log"});
    EXPECT_EQ(parent.status, 0);
    EXPECT_EQ(parent.output, "");
    ASSERT_TRUE(wait_for(daemon_answers));

    const pid_t pid = atoi(run_shell("pidof faxtrayd").output.c_str());
    ASSERT_GT(pid, 0);
    EXPECT_EQ(getsid(pid), pid) << "leads no session";
    kill(pid, SIGTERM);
    EXPECT_TRUE(wait_for([pid] { return kill(pid, 0) != 0; }));
    EXPECT_NE(read_file(s / "own_log").find("] started\nTrayd: Interrupted: signal [15]\n"),
              std::string::npos);
}

TEST(Life, ChildrenWouldInheritNoDescriptors)
{
    site s;
    s.add_faxes(s.inbox("alsmith"), 3);
    running_daemon daemon(s);
    connection c;
    ASSERT_EQ(c.call(2, index_of(al)).faxes().size(), 3u);

    int seen = 0;
    for (const auto &entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(daemon.pid()) + "/fdinfo")) {
        const std::string fd = entry.path().filename(), info = read_file(entry.path());
        unsigned long flags = strtoul(info.c_str() + info.find("flags:") + 6, nullptr, 8);
        EXPECT_TRUE(std::stoi(fd) <= 2 || flags & 02000000) << fd;
        seen++;
    }
    EXPECT_GE(seen, 5);  // log twice, listener, connection, signals
}

}  // namespace faxtray
