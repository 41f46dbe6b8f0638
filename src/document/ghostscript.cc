// gs is trusted to keep what -dSAFER promises, and with nothing else: it leads a process group, is limited by
// the system, and runs in a directory where it finds the document only.
#include "document/ghostscript.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "util/child_process.h"

namespace faxtray {

static constexpr rlim_t memory = rlim_t{2} << 30, file_size = rlim_t{4} << 30;  // bytes
static constexpr int not_started = 127;                                         // exit status
static constexpr char messages[] = "messages";  // the file that gets what gs prints

bool scratch_directory::make_in(const std::string &parent)
{
    std::string path = parent + "/" + scratch_prefix + "XXXXXX";
    if (!mkdtemp(path.data()))
        return false;
    path_ = path;
    return true;
}

scratch_directory::~scratch_directory()
{
    std::error_code ignored;
    if (!path_.empty())
        std::filesystem::remove_all(path_, ignored);
}

static void limit(int what, rlim_t most)
{
    const struct rlimit both = {most, most};
    setrlimit(what, &both);
}

// The child, from fork to exec: async-signal-safe calls only.
[[noreturn]] static void become_ghostscript(const char *directory, char *const *arguments, unsigned seconds)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setpgid(0, 0);
    if (chdir(directory) != 0)
        _exit(not_started);
    const int in = open("/dev/null", O_RDONLY), out = open(messages, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (in < 0 || out < 0 || dup2(in, STDIN_FILENO) < 0 || dup2(out, STDOUT_FILENO) < 0 ||
        dup2(out, STDERR_FILENO) < 0)
        _exit(not_started);
    close_descriptors_from(STDERR_FILENO + 1);
    for (int signal = 1; signal < NSIG; signal++)
        ::signal(signal, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    limit(RLIMIT_AS, memory);
    limit(RLIMIT_FSIZE, file_size);
    limit(RLIMIT_CPU, seconds);
    limit(RLIMIT_CORE, 0);
    execvp(arguments[0], arguments);
    _exit(not_started);
}

static reason_t too_slow(unsigned seconds)
{
    return {"gs took longer than " + std::to_string(seconds) + " s"};
}

// Waits for that process group to end, and ends it when it is to end earlier. Returns the wait status of its
// leader; `why` gets the reason why it was ended.
static int await(pid_t pid, unsigned seconds, const ending_signals_held &signals, reason_t *why)
{
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + std::chrono::seconds(seconds);
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        std::this_thread::sleep_for(5ms);
        const bool overdue = steady_clock::now() >= deadline;
        if (!overdue && !signals.one_came())
            continue;
        *why = overdue ? too_slow(seconds) : reason_t{"interrupted", true};
        kill(-pid, SIGKILL);
    }
    return status;
}

// The first line about an error, else the first line.
std::string ghostscript_complaint(const std::string &directory)
{
    std::ifstream file(directory + "/" + messages);
    std::string line, first, error;
    while (std::getline(file, line)) {
        if (line.find("password") != line.npos)
            return "encrypted: it can't be read without its password";
        const size_t text = line.find_first_not_of(" *");
        if (text == line.npos)
            continue;
        std::string &found = line.find("rror") != line.npos ? error : first;
        if (found.empty())
            found = line.substr(text, 200);
    }
    return "gs: " + (!error.empty() ? error : !first.empty() ? first : "failed");
}

bool run_ghostscript(const std::string &directory, const std::vector<std::string> &arguments,
                     unsigned seconds, const ending_signals_held &signals, reason_t *why)
{
    std::vector<std::string> words = {"gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-dNOPROMPT"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char *> pointers;
    for (std::string &word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    *why = {};
    const pid_t pid = fork();
    if (pid == 0)
        become_ghostscript(directory.c_str(), pointers.data(), seconds);
    if (pid < 0) {
        *why = {std::string("gs can't be started: ") + strerror(errno), true};
        return false;
    }
    const int status = await(pid, seconds, signals, why);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return true;
    if (WIFEXITED(status) && WEXITSTATUS(status) == not_started)
        *why = {"gs can't be started; it is in the package ghostscript", true};
    else if (WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU)
        *why = too_slow(seconds);
    else if (why->text.empty())
        *why = {ghostscript_complaint(directory)};
    return false;
}

}  // namespace faxtray
