#include "util/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/refuse_call.h"
#include "support/temp_dir.h"
#include "support/wait_for.h"
#include "util/owned.h"
#include "util/time_limit.h"

namespace faxtray {

static std::string output_of(const char *command)
{
    FILE *in = child_popen(command, "r");
    std::string text;
    for (int ch; in && (ch = getc(in)) != EOF;)
        text += static_cast<char>(ch);
    EXPECT_EQ(child_pclose(in), 0) << command;
    return text;
}

TEST(ChildProcess, StreamsRunSideBySide)
{
    capture_stdout printed;
    printf("before, ");
    FILE *first = child_popen("cat; exit 1", "w"), *second = child_popen("cat; exit 2", "w");
    fputs("first, ", first);
    fputs("second", second);
    EXPECT_EQ(WEXITSTATUS(child_pclose(first)), 1) << "ends although the second is still open";
    EXPECT_EQ(WEXITSTATUS(child_pclose(second)), 2);
    EXPECT_EQ(printed.text(), "before, first, second");
}

TEST(ChildProcess, SeesOnlyTheStandardDescriptors)
{
    unique_fd leaked(fcntl(STDERR_FILENO, F_DUPFD, 77)), saved(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10));
    EXPECT_EQ(output_of("ls /proc/$$/fd; readlink /proc/$$/fd/0; true"), "0\n1\n2\n/dev/null\n");
    close(STDIN_FILENO);  // so that a pipe's first end would become 0
    EXPECT_EQ(output_of("echo text"), "text\n");
    if (saved)
        dup2(saved.get(), STDIN_FILENO);
    auto closes_one_by_one = [] {
        refuse_call(SYS_close_range, ENOSYS);
        exit(output_of("ls /proc/$$/fd; true") == "0\n1\n2\n" ? 0 : 1);
    };
    EXPECT_EXIT(closes_one_by_one(), testing::ExitedWithCode(0), "");
}

TEST(ChildProcess, OneThatDoesNotReadEndsNobody)
{
    const std::string more(1 << 20, 'x');  // than a pipe holds
    FILE *deaf = child_popen("exec true", "w");
    EXPECT_LT(fwrite(more.data(), 1, more.size(), deaf), more.size());
    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(child_pclose(deaf), 0);
    EXPECT_EQ(signal(SIGPIPE, SIG_DFL), SIG_DFL) << "as before";
    EXPECT_EQ(child_popen("true", "we"), nullptr);
    EXPECT_EQ(child_pclose(stdout), -1);
    EXPECT_EQ(WEXITSTATUS(child_system("exec /nonexistent 2>/dev/null")), 127);
}

TEST(ChildProcess, StartsWithCleanSignalsAndTheOldLimit)
{
    struct rlimit old;
    getrlimit(RLIMIT_NOFILE, &old);
    const struct rlimit remembered = {old.rlim_cur - 1, old.rlim_max}, low = {64, old.rlim_max};
    child_set_limit(remembered);
    setrlimit(RLIMIT_NOFILE, &low);
    sigset_t all, before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);
    auto handler = signal(SIGPIPE, SIG_IGN);

    EXPECT_EQ(output_of("exec grep -E 'SigBlk|SigIgn' /proc/self/status"),
              "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
    EXPECT_EQ(output_of("ulimit -n"), std::to_string(remembered.rlim_cur) + "\n");

    signal(SIGPIPE, handler);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    setrlimit(RLIMIT_NOFILE, &old);
    child_set_limit(old);
}

TEST(ChildProcess, StatusesAreItsOwnAmongOtherChildren)
{
    struct sigaction interrupts = {};  // without SA_RESTART
    interrupts.sa_handler = [](int) {};
    sigaction(SIGCHLD, &interrupts, nullptr);
    child_awaited();
    for (int i = 0; i < 40; i++) {
        if (fork() == 0)
            _exit(99);
        ASSERT_EQ(WEXITSTATUS(child_system(("exit " + std::to_string(i)).c_str())), i);
    }
    EXPECT_EQ(child_awaited(), 40);
    EXPECT_EQ(WTERMSIG(child_system("kill -9 $$")), SIGKILL);
    int others = 0;
    while (wait(nullptr) > 0)
        others++;
    EXPECT_EQ(others, 40) << "are left for the reaper";
    signal(SIGCHLD, SIG_DFL);
}

TEST(ChildProcess, NoneIsRunThatCouldNotBeWatched)
{
    std::vector<FILE *> streams;
    for (FILE *stream; streams.size() < 20 && (stream = child_popen("exec cat", "w"));)
        streams.push_back(stream);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(streams.size(), 16u);
    for (FILE *stream : streams)
        EXPECT_EQ(child_pclose(stream), 0);
    EXPECT_EQ(child_system("true"), 0);
}

// The pids in the file, of which none may be left after a moment.
static bool have_ended(const std::string &path)
{
    std::istringstream pids(read_file(path));
    const std::vector<int> all{std::istream_iterator<int>(pids), {}};
    return wait_for([&] {
        return std::all_of(all.begin(), all.end(), [](int pid) {
            // Who reaps them once their parents have gone may take its time.
            return kill(pid, 0) != 0 ||
                   read_file("/proc/" + std::to_string(pid) + "/stat").find(") Z") != std::string::npos;
        });
    });
}

TEST(ChildProcess, OneThatTakesTooLongIsEndedWithItsGroup)
{
    const temp_dir dir;
    capture_stderr log;
    const std::string pids = dir / "pids", note = "echo $$ >>" + pids + "; ", more(1 << 20, 'x');
    const time_t start = time(nullptr);
    set_command_seconds(1, 1);
    // One that only SIGKILL ends, with a grandchild; one whose grandchild cleans up after SIGTERM; one from
    // whose group somebody has gone who holds the pipe and reads nothing.
    FILE *deaf =
        child_popen((note + "trap '' TERM; sh -c '" + note + "sleep 60; sleep 60'; sleep 60").c_str(), "w");
    FILE *tidy = child_popen((note + "sh -c 'trap \"sleep 0.2; echo >" + dir.path() +
                              "/cleaned; exit\" TERM; sleep 60 & wait'; true")
                                 .c_str(),
                             "w");
    FILE *gone = child_popen((note + "exec setsid -w sleep 20").c_str(), "w");
    for (FILE *stream : {deaf, tidy, gone})
        EXPECT_LT(fwrite(more.data(), 1, more.size(), stream), more.size());
    for (FILE *stream : {deaf, tidy, gone}) {
        EXPECT_EQ(child_pclose(stream), -1);
        EXPECT_EQ(errno, ETIMEDOUT);
    }
    EXPECT_TRUE(access((dir / "cleaned").c_str(), F_OK) == 0);
    EXPECT_LT(time(nullptr) - start, 15);
    EXPECT_EQ(output_of("echo quick"), "quick\n");
    EXPECT_TRUE(have_ended(pids));
    EXPECT_NE(log.text().find("took longer than 1 s: [" + note), std::string::npos);

    set_command_seconds(0);
    EXPECT_EQ(child_system("sleep 1.2"), 0) << "no limit, and no timer left";
}

}  // namespace faxtray
