// Named are the few signals that end nothing, since those that do are many: timers, limits, user's and
// real-time signals, and the faults of the program itself.
#include "util/ending_signals.h"

namespace faxtray {

static bool ends_a_program(int signal)
{
    switch (signal) {
    case SIGCHLD:
    case SIGCONT:
    case SIGSTOP:
    case SIGTSTP:
    case SIGTTIN:
    case SIGTTOU:
    case SIGURG:
    case SIGWINCH:
        return false;
    default:
        return true;
    }
}

sigset_t ending_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal = 1; signal <= SIGRTMAX; signal++) {
        struct sigaction now;
        if (ends_a_program(signal) && sigaction(signal, nullptr, &now) == 0 && now.sa_handler != SIG_IGN)
            sigaddset(&signals, signal);
    }
    return signals;
}

ending_signals_held::ending_signals_held() noexcept : held_(ending_signals())
{
    sigprocmask(SIG_BLOCK, &held_, &before_);
}

ending_signals_held::~ending_signals_held()
{
    sigprocmask(SIG_SETMASK, &before_, nullptr);
}

bool ending_signals_held::one_came() const noexcept
{
    sigset_t waiting, ours;
    sigpending(&waiting);
    sigandset(&ours, &waiting, &held_);
    return !sigisemptyset(&ours);
}

}  // namespace faxtray
