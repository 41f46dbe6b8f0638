// Signal handlers, which call only what is async-signal-safe, and the work they leave to the loop.
#include "daemon/signals.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "util/child_process.h"

namespace faxtray {

static int wake_pipe[2] = {-1, -1};
static volatile sig_atomic_t child_signalled = 0;
static volatile sig_atomic_t terminated_by = 0;  // the terminating signal, 0 for none

// Crashes may come of a full stack, so their handler has its own.
static char crash_stack[64 * 1024];

static void write_text(const char *text, size_t n)
{
    while (n > 0) {
        const ssize_t written = write(STDERR_FILENO, text, n);
        if (written <= 0)
            return;
        text += written;
        n -= static_cast<size_t>(written);
    }
}

static void wake_loop()
{
    const int saved = errno;
    // A full pipe wakes as well as one byte more would.
    [[maybe_unused]] const ssize_t n = write(wake_pipe[1], "", 1);
    errno = saved;
}

// "Trayd: Interrupted: signal [%d]\n" without printf; `sig` has at most two digits.
static void write_interrupted(int sig)
{
    char text[] = "Trayd: Interrupted: signal [00]\n";
    char *digits = strchr(text, '0');
    digits[0] = static_cast<char>('0' + sig / 10 % 10);
    digits[1] = static_cast<char>('0' + sig % 10);
    if (sig < 10)
        memmove(digits, digits + 1, strlen(digits + 1) + 1);
    write_text(text, strlen(text));
}

void exit_proc(int sig)
{
    static constexpr char bus[] = "Trayd: Internal failure: [SIGBUS]\n";
    static constexpr char segv[] = "Trayd: Internal failure: [SIGSEGV]\n";
    if (sig == SIGBUS || sig == SIGSEGV) {
        if (sig == SIGBUS)
            write_text(bus, sizeof bus - 1);
        else
            write_text(segv, sizeof segv - 1);
        _exit(10);
    }
    if (terminated_by != 0) {  // the second: whoever sends it does not want to wait for the request
        write_interrupted(sig);
        _exit(0);
    }
    terminated_by = sig;
    wake_loop();
}

void sa_child(int)
{
    child_signalled = 1;
    wake_loop();
}

static void ignore_signal(int) {}

static int install(int sig, void (*handler)(int), int flags)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, sig);
    return sigaction(sig, &action, nullptr) == 0 && sigprocmask(SIG_UNBLOCK, &one, nullptr) == 0;
}

int signals_init(int debug)
{
    if (wake_pipe[0] < 0 && pipe2(wake_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return 0;

    // Fatal signals: with room on a stack of their own.
    if (!debug) {
        stack_t stack = {};
        stack.ss_sp = crash_stack;
        stack.ss_size = sizeof crash_stack;
        if (sigaltstack(&stack, nullptr) != 0 || !install(SIGBUS, exit_proc, SA_ONSTACK) ||
            !install(SIGSEGV, exit_proc, SA_ONSTACK))
            return 0;
    }

    // SA_RESTART, since an interrupted write would cut a mail in the middle. SIGPIPE has an empty
    // handler instead of SIG_IGN, which children would inherit.
    for (const int sig : {SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2})
        if (!install(sig, exit_proc, SA_RESTART))
            return 0;
    return install(SIGHUP, SIG_IGN, SA_RESTART) && install(SIGCHLD, sa_child, SA_RESTART) &&
           install(SIGPIPE, ignore_signal, SA_RESTART);
}

int signals_fd()
{
    return wake_pipe[0];
}

bool signals_pending()
{
    return child_signalled != 0 || terminated_by != 0;
}

static void report_child(pid_t pid, int status)
{
    if (WIFSIGNALED(status))
        fprintf(stderr, "sa_child: pid %d killed with signal %d.\n", pid, WTERMSIG(status));
    else if (!WIFEXITED(status))
        fprintf(stderr, "sa_child: pid %d died for unknown reason.\n", pid);
    else if (WEXITSTATUS(status) != 0)
        fprintf(stderr, "sa_child: pid %d failed with exit code %d.\n", pid, WEXITSTATUS(status));
}

// Reaps until none is left. That none was there at all is told when no child awaited by child_process
// can have raised the signal.
static void reap_children()
{
    bool explained = child_awaited() > 0;
    for (;;) {
        int status;
        const pid_t pid = waitpid(-1, &status, WNOHANG);
        if (pid <= 0 && !explained) {
            if (pid < 0)
                fprintf(stderr, "sa_child: waitpid: %s.\n", strerror(errno));
            else
                fprintf(stderr, "sa_child: Expected a waitable child.\n");
        }
        if (pid <= 0)
            return;
        report_child(pid, status);
        explained = true;
    }
}

void signals_handle()
{
    char bytes[64];
    while (read(wake_pipe[0], bytes, sizeof bytes) > 0) {
    }
    if (child_signalled) {
        child_signalled = 0;
        reap_children();
    }
    if (terminated_by) {
        fprintf(stderr, "Trayd: Interrupted: signal [%d]\n", static_cast<int>(terminated_by));
        fprintf(stderr, "Trayd: Shutting down...\n");
        exit(0);
    }
}

}  // namespace faxtray
