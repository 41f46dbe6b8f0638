// The handler walks a table of fixed size with async-signal-safe calls only; everybody else changes the table
// with SIGALRM blocked.
#include "util/time_limit.h"

#include <signal.h>
#include <sys/time.h>

#include <cerrno>
#include <ctime>
#include <limits>

namespace faxtray {

static constexpr time_t grace = 5;  // seconds between SIGTERM and SIGKILL
static constexpr time_t no_deadline = std::numeric_limits<time_t>::max();
static constexpr int most_groups = 16;  // at once; further ones have no limit. A delivery has two or three

namespace {

struct watched_t {
    pid_t group;      // 0: free
    time_t deadline;  // on the monotonic clock: of the next signal
    int signals;      // sent so far
};

}  // namespace

static watched_t table[most_groups];
static unsigned command_seconds;
static struct sigaction former;

static time_t seconds_now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

static void end_overdue(int)
{
    const int saved = errno;
    const time_t now = seconds_now();
    for (watched_t &watched : table) {
        if (watched.group == 0 || now < watched.deadline)
            continue;
        kill(-watched.group, watched.signals++ == 0 ? SIGTERM : SIGKILL);
        watched.deadline = now + grace;
    }
    errno = saved;
}

// The handler runs every second while there is something to watch.
static void set_timer(bool on)
{
    itimerval every = {};
    if (on) {
        every.it_interval.tv_sec = every.it_value.tv_sec = 1;
        struct sigaction action = {};
        action.sa_handler = end_overdue;
        action.sa_flags = SA_RESTART;
        sigemptyset(&action.sa_mask);
        sigaction(SIGALRM, &action, &former);
        setitimer(ITIMER_REAL, &every, nullptr);
    } else {
        setitimer(ITIMER_REAL, &every, nullptr);
        sigaction(SIGALRM, &former, nullptr);
    }
}

static bool is_empty()
{
    for (const watched_t &watched : table)
        if (watched.group != 0)
            return false;
    return true;
}

// While one of these lives, the handler does not run.
namespace {

class alarm_blocked {
public:
    alarm_blocked()
    {
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        sigprocmask(SIG_BLOCK, &alarm, &before_);
    }
    ~alarm_blocked() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    alarm_blocked(const alarm_blocked &) = delete;
    alarm_blocked &operator=(const alarm_blocked &) = delete;

private:
    sigset_t before_;
};

}  // namespace

void set_command_seconds(unsigned seconds)
{
    command_seconds = seconds;
}

void begin_time_limit(pid_t group)
{
    const alarm_blocked blocked;
    const bool first = is_empty() && command_seconds != 0;
    const time_t deadline = seconds_now() + static_cast<time_t>(command_seconds);
    for (watched_t &watched : table)
        if (watched.group == 0) {
            watched = {group, command_seconds != 0 ? deadline : no_deadline, 0};
            if (first)
                set_timer(true);
            return;
        }
}

bool end_time_limit(pid_t group)
{
    const alarm_blocked blocked;
    for (watched_t &watched : table)
        if (watched.group == group) {
            const bool overdue = watched.signals > 0;
            if (overdue)
                kill(-group, SIGKILL);
            watched = {};
            if (is_empty() && command_seconds != 0)
                set_timer(false);
            return overdue;
        }
    return false;
}

void kill_commands()
{
    for (const watched_t &watched : table)
        if (watched.group != 0)
            kill(-watched.group, SIGKILL);
}

}  // namespace faxtray
