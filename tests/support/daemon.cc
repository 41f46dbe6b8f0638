#include "support/daemon.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "support/wait_for.h"
#include "support/wire.h"
#include "util/owned.h"

namespace faxtray {

pid_t spawn(const std::vector<std::string> &words, const std::string &directory, const std::string &output)
{
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    std::vector<char *> argv;
    for (const std::string &word : words)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
    const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    unsetenv("ONDRIXHOME");
    setenv("ONDRIXTMP", (directory + "/tmp").c_str(), 1);
    if (chdir(directory.c_str()) == 0 && dup2(out, 1) == 1 && dup2(out, 2) == 2)
        execvp(argv[0], argv.data());
    perror(argv[0]);
    _exit(127);
}

bool has_ended(pid_t pid)
{
    siginfo_t state = {};
    return waitid(P_PID, static_cast<id_t>(pid), &state, WEXITED | WNOHANG | WNOWAIT) != 0 ||
           state.si_pid != 0;
}

int await(pid_t pid)
{
    if (!wait_for([&] { return has_ended(pid); })) {
        ADD_FAILURE() << "process " << pid << " does not end";
        kill(pid, SIGKILL);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

ended_t run_shell(const std::string &command)
{
    ended_t ended = {127, ""};
    fflush(nullptr);
    if (FILE *out = popen(("{ " + command + "\n} 2>&1").c_str(), "r")) {
        for (int ch; (ch = getc(out)) != EOF;)
            ended.output += static_cast<char>(ch);
        int status = pclose(out);
        ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    }
    return ended;
}

bool daemon_answers()
{
    connection c;
    return c.is_open() && c.call(0, "").accept_stat == 0;
}

running_daemon::running_daemon(const site &at, const std::vector<std::string> &options) : site_(at)
{
    std::vector<std::string> words = {
        FAXTRAYD, "-f", "-W", "work", "-U", at / "USER_LIST.info", "-M", at / "MODEMS.info"};
    words.insert(words.end(), options.begin(), options.end());
    pid_ = spawn(words, at.path(), at / "output");
    if (!wait_for([&] { return has_ended(pid_) || daemon_answers(); }) || has_ended(pid_))
        ADD_FAILURE() << "faxtrayd does not start: " << read_file(at / "output");
}

running_daemon::~running_daemon()
{
    if (pid_ > 0) {
        EXPECT_EQ(stop(), 0) << log();
    }
}

std::string running_daemon::log() const
{
    return read_file(site_ / "work/trayd_log");
}

void running_daemon::signal(int sig) const
{
    kill(pid_, sig);
}

int running_daemon::stop(int sig)
{
    signal(sig);
    return await(std::exchange(pid_, -1));
}

long running_daemon::resident_kb() const
{
    std::string status = read_file("/proc/" + std::to_string(pid_) + "/status");
    return atol(status.c_str() + status.find("VmRSS:") + 6);
}

bool running_daemon::is_idle() const
{
    clockid_t processor_time;
    EXPECT_EQ(clock_getcpuclockid(pid_, &processor_time), 0);
    auto milliseconds = [&] {
        struct timespec spent = {};
        clock_gettime(processor_time, &spent);
        return spent.tv_sec * 1000 + spent.tv_nsec / 1'000'000;
    };
    return wait_for([&] {
        const auto before = milliseconds();
        poll(nullptr, 0, 200);  // a daemon that spins spends most of it
        return milliseconds() == before;
    });
}

}  // namespace faxtray
