// Starting, running and ending: what administrators see.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <sstream>

#include "requests.h"
#include "support/daemon.h"
#include "support/private_host.h"
#include "support/wait_for.h"

namespace faxtray {

static const char template_id[] = "%Z%|%M%|%R%|0|%L%|%B%|%S%|%G%|%U%";

TEST(Life, OptionsAnswerOrRefuse)
{
    const std::string usage = std::string("Faxtrayd version: ") + template_id +
                              ".\n"
                              "Usage:\n"
                              "faxtrayd [-Dbfhi] [-M modems] [-U users] [-d delay] [-l log-file]n\n"
                              "Options:\n"
                              "    -D            Debugging mode.\n"
                              "    -M modems     Specify MODEMS.info file.\n"
                              "    -U users      Specify USER_LIST.info file.\n"
                              "    -b            Backward compatibility mode.\n"
                              "    -d delay      Inbox update delay.\n"
                              "    -f            Run in foreground.\n"
                              "    -h            Display this message and exit.\n"
                              "    -i            Force initialization of inbox state.\n"
                              "    -l log-file   Specify log file.\n";
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
    EXPECT_EQ(revision.output.substr(0, 21), "Faxtrayd             ");
}

TEST(Life, EndsOnSignalsAndTellsWhy)
{
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
        std::string started = std::string("faxtrayd: Trayd version [") + template_id + "] started\n";
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
    EXPECT_EQ(access((s.inbox("alsmith") + "/.inbox_index").c_str(), F_OK), 0);
    EXPECT_NE(access((s.inbox("bea") + "/.inbox_index").c_str(), F_OK), 0) << "never loaded: no marker stays";
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

// The n-th field of /proc/PID/stat, counted from 1; names hold no blanks here.
static std::string stat_field(pid_t pid, int n)
{
    std::istringstream stat(read_file("/proc/" + std::to_string(pid) + "/stat"));
    std::string field;
    while (n-- > 0)
        stat >> field;
    return field;
}

static pid_t find_daemon()
{
    for (const auto &entry : std::filesystem::directory_iterator("/proc"))
        if (pid_t pid = atoi(entry.path().filename().c_str()); pid > 0 && stat_field(pid, 2) == "(faxtrayd)")
            return pid;
    return 0;
}

TEST(Life, DetachesFromTheTerminal)
{
    site s;
    ended_t parent =
        run_faxtrayd(s, {"-W", "work", "-U", "USER_LIST.info", "-M", "MODEMS.info", "-l", "own_log"});
    EXPECT_EQ(parent.status, 0);
    EXPECT_EQ(parent.output, "");
    ASSERT_TRUE(wait_for(daemon_answers));

    pid_t pid = find_daemon();
    ASSERT_GT(pid, 0);
    EXPECT_EQ(stat_field(pid, 6), std::to_string(pid)) << "leads no session";
    EXPECT_EQ(call(9, al).code(), 0);
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
         std::filesystem::directory_iterator("/proc/" + std::to_string(daemon.pid()) + "/fd")) {
        std::string fd = entry.path().filename(),
                    info = read_file("/proc/" + std::to_string(daemon.pid()) + "/fdinfo/" + fd);
        unsigned long flags = strtoul(info.c_str() + info.find("flags:") + 6, nullptr, 8);
        EXPECT_TRUE(std::stoi(fd) <= 2 || flags & 02000000)
            << fd << std::filesystem::read_symlink(entry.path());
        seen++;
    }
    EXPECT_GE(seen, 5);  // log twice, listener, connection, signals
}

}  // namespace faxtray
