#include "util/child_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/capture.h"
#include "util/owned.h"

namespace faxtray {

static volatile sig_atomic_t signals;

// Handles a signal by counting it; without SA_RESTART, so that it interrupts what waits.
class counted_signal {
public:
    explicit counted_signal(int signal) : signal_(signal)
    {
        struct sigaction action = {};
        action.sa_handler = [](int) { signals = signals + 1; };
        sigaction(signal_, &action, &old_);
        signals = 0;
    }
    ~counted_signal() { sigaction(signal_, &old_, nullptr); }

private:
    int signal_;
    struct sigaction old_ = {};
};

static std::string output_of(const char *command)
{
    FILE *in = child_popen(command, "r");
    std::string text;
    for (int ch; in && (ch = getc(in)) != EOF;)
        text += static_cast<char>(ch);
    EXPECT_EQ(child_pclose(in), 0) << command;
    return text;
}

TEST(ChildProcess, GivesTheWaitStatus)
{
    child_awaited();
    EXPECT_EQ(WEXITSTATUS(child_system("exit 7")), 7);
    EXPECT_EQ(WEXITSTATUS(child_system("/nonexistent/command 2>/dev/null")), 127);
    EXPECT_EQ(WTERMSIG(child_system("kill -9 $$")), SIGKILL);
    EXPECT_EQ(child_awaited(), 3);
    EXPECT_EQ(child_awaited(), 0);
    EXPECT_EQ(child_popen("true", "rw"), nullptr);
    EXPECT_EQ(child_pclose(stderr), -1);
}

TEST(ChildProcess, StreamsRunSideBySide)
{
    capture_stdout printed;
    printf("printed before, ");
    FILE *first = child_popen("cat; exit 1", "w"), *second = child_popen("cat; exit 2", "w");
    ASSERT_TRUE(first && second);
    fputs("first, ", first);
    fputs("second", second);
    EXPECT_EQ(WEXITSTATUS(child_pclose(first)), 1) << "ends although the second is still open";
    EXPECT_EQ(WEXITSTATUS(child_pclose(second)), 2);
    EXPECT_EQ(printed.text(), "printed before, first, second");
}

TEST(ChildProcess, SeesOnlyTheStandardDescriptors)
{
    unique_fd leaked(fcntl(STDERR_FILENO, F_DUPFD, 77));
    ASSERT_TRUE(leaked);
    EXPECT_EQ(output_of("ls /proc/$$/fd; true"), "0\n1\n2\n");
    EXPECT_EQ(output_of("readlink /proc/$$/fd/0; true"), "/dev/null\n");
}

TEST(ChildProcess, WorksWithoutStandardInput)
{
    unique_fd saved(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10));
    close(STDIN_FILENO);  // so that the pipe's first end would become 0
    EXPECT_EQ(output_of("echo text"), "text\n");
    FILE *out = child_popen("read line; test \"$line\" = text", "w");
    fputs("text\n", out);
    EXPECT_EQ(child_pclose(out), 0);
    if (saved)
        dup2(saved.get(), STDIN_FILENO);
}

TEST(ChildProcess, StartsWithCleanSignalsAndTheOldLimit)
{
    struct rlimit old;
    getrlimit(RLIMIT_NOFILE, &old);
    const struct rlimit remembered = {old.rlim_cur - 1, old.rlim_max}, low = {64, old.rlim_max};
    child_set_limit(remembered);
    setrlimit(RLIMIT_NOFILE, &low);
    sigset_t blocked, before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    auto handler = signal(SIGPIPE, SIG_IGN);

    EXPECT_EQ(output_of("exec grep -E 'SigBlk|SigIgn' /proc/self/status"),
              "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
    EXPECT_EQ(output_of("ulimit -n"), std::to_string(remembered.rlim_cur) + "\n");

    signal(SIGPIPE, handler);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    setrlimit(RLIMIT_NOFILE, &old);
    child_set_limit(old);
}

TEST(ChildProcess, WaitsOutInterruptions)
{
    counted_signal usr1(SIGUSR1);
    for (int i = 0; i < 20; i++)
        ASSERT_EQ(WEXITSTATUS(child_system("kill -USR1 $PPID; kill -USR1 $PPID; exit 5")), 5);
    EXPECT_GE(signals, 20);
}

TEST(ChildProcess, StatusesAreItsOwnAmongOtherChildren)
{
    counted_signal chld(SIGCHLD);
    child_awaited();
    constexpr int count = 40;
    for (int i = 0; i < count; i++) {
        if (fork() == 0)
            _exit(99);
        ASSERT_EQ(WEXITSTATUS(child_system(("exit " + std::to_string(i)).c_str())), i);
    }
    EXPECT_EQ(child_awaited(), count);
    int others = 0, status = 0;
    for (; waitpid(-1, &status, 0) > 0; others++)
        EXPECT_EQ(WEXITSTATUS(status), 99);
    EXPECT_EQ(others, count) << "are left for the reaper";
    EXPECT_GT(signals, 0);
}

}  // namespace faxtray
