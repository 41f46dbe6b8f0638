// The handlers call only what is async-signal-safe; everything else is left to signals_handle().
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

#include "daemon/delivery_queue.h"
#include "daemon/notice_queue.h"
#include "util/child_process.h"
#include "util/io.h"
#include "util/time_limit.h"

namespace faxtray {

static int wake_pipe[2] = {-1, -1};  // the loop reads [0], handlers write [1]; neither end blocks
static volatile sig_atomic_t child_signalled = 0;
static volatile sig_atomic_t terminated_by = 0;  // the terminating signal, 0 for none
static volatile sig_atomic_t hurried = 0;        // a second one has come
static bool ending = false;

// A crash may be a stack overflow, so its handler runs on a stack of its own.
static char crash_stack[64 * 1024];

// What cannot be written is lost: there is no other place to report it.
static void write_text(const char *text)
{
    (void)write_full(STDERR_FILENO, text, strlen(text));
}

void signals_wake()
{
    const int saved = errno;
    // If the pipe is full, the loop will wake anyway.
    [[maybe_unused]] const ssize_t n = write(wake_pipe[1], "", 1);
    errno = saved;
}

void exit_proc(int sig)
{
    // Memory is in an unknown state, so nothing is cleaned up.
    if (sig == SIGBUS || sig == SIGSEGV) {
        write_text(sig == SIGBUS ? "Trayd: Internal failure: [SIGBUS]\n"
                                 : "Trayd: Internal failure: [SIGSEGV]\n");
        _exit(10);
    }
    // The second one: whoever sends it does not want to wait for the delivery that is running.
    if (terminated_by != 0)
        hurried = 1;
    terminated_by = sig;
    signals_wake();
}

// Reaping is left to the loop: a request that awaits its own child must find it there.
void sa_child(int)
{
    child_signalled = 1;
    signals_wake();
}

// Installs a handler and unblocks its signal, which whoever started us may have left blocked.
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

    // Fatal signals. In debugging mode they leave a core file instead.
    if (!debug) {
        stack_t stack = {};
        stack.ss_sp = crash_stack;
        stack.ss_size = sizeof crash_stack;
        if (sigaltstack(&stack, nullptr) != 0 || !install(SIGBUS, exit_proc, SA_ONSTACK) ||
            !install(SIGSEGV, exit_proc, SA_ONSTACK))
            return 0;
    }

    // SA_RESTART, because an interrupted write would cut a mail in the middle. SIGPIPE is ignored so that a
    // client which hangs up costs a failed write and no more, and SIGXFSZ so that a file which may not grow
    // does; children get the defaults back (child_process).
    for (const int sig : {SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2})
        if (!install(sig, exit_proc, SA_RESTART))
            return 0;
    return install(SIGHUP, SIG_IGN, SA_RESTART) && install(SIGCHLD, sa_child, SA_RESTART | SA_NOCLDSTOP) &&
           install(SIGPIPE, SIG_IGN, SA_RESTART) && install(SIGXFSZ, SIG_IGN, SA_RESTART);
}

int signals_fd()
{
    return wake_pipe[0];
}

bool signals_pending()
{
    return child_signalled != 0 || terminated_by != 0;
}

// Logs how a child ended that nobody awaited; success is not worth a line.
static void report_child(pid_t pid, int status)
{
    if (WIFSIGNALED(status))
        fprintf(stderr, "sa_child: pid %d killed with signal %d.\n", pid, WTERMSIG(status));
    else if (!WIFEXITED(status))
        fprintf(stderr, "sa_child: pid %d died for unknown reason.\n", pid);
    else if (WEXITSTATUS(status) != 0)
        fprintf(stderr, "sa_child: pid %d failed with exit code %d.\n", pid, WEXITSTATUS(status));
}

// Reaps until no child is left, since several signals may have arrived as one. Complains if there was none at
// all, unless child_process itself awaited the one that raised the signal.
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
        if (!delivery_has_ended(pid, status) && !notice_has_ended(pid, status))
            report_child(pid, status);
        explained = true;
    }
}

void signals_handle()
{
    // Empty the pipe before looking at the flags: a signal that arrives in between wakes the loop again.
    char bytes[64];
    while (read(wake_pipe[0], bytes, sizeof bytes) > 0) {
    }
    if (child_signalled) {
        child_signalled = 0;
        reap_children();
    }
    notices_begin();
    if (terminated_by && !ending) {
        fprintf(stderr, "Trayd: Interrupted: signal [%d]\n", static_cast<int>(terminated_by));
        fprintf(stderr, "Trayd: Shutting down...\n");
        ending = true;
    }
}

// What a child leaves undone, the daemon or its next start knows of.
static void end_child(int)
{
    kill_commands();
    _exit(1);
}

pid_t fork_worker()
{
    fflush(nullptr);
    // Signals wait until the child has handlers of its own: the daemon's would only take note of them.
    sigset_t all, before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before);
    const pid_t child = fork();
    const int error = errno;
    if (child == 0) {
        for (const int sig : {SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2})
            signal(sig, end_child);
        signal(SIGCHLD, SIG_DFL);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return child;
}

bool signals_ending()
{
    return ending;
}

bool signals_hurried()
{
    return hurried != 0;
}

}  // namespace faxtray
