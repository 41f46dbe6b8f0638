// The handler walks a table of fixed size with async-signal-safe calls only; everybody else changes the table
// with SIGALRM blocked.
#include "util/time_limit.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <limits>

namespace faxtray {

static constexpr int64_t no_deadline = std::numeric_limits<int64_t>::max();
static constexpr int most_groups = 16;  // at once; a delivery has two or three

namespace {

struct watched_t {
    pid_t group;                    // 0: free
    int input;                      // our end of its standard input, or -1
    int64_t deadline;               // of the next signal, in milliseconds of the monotonic clock
    volatile sig_atomic_t signals;  // sent so far
};

}  // namespace

static watched_t table[most_groups];
static unsigned limit_seconds, grace_seconds;

static int64_t milliseconds_now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

static void end_overdue(int)
{
    const int saved = errno;
    const int64_t now = milliseconds_now();
    for (watched_t &watched : table) {
        if (watched.group == 0 || now < watched.deadline)
            continue;
        const bool first = watched.signals == 0;
        kill(-watched.group, first ? SIGTERM : SIGKILL);
        watched.deadline = now + int64_t{grace_seconds} * 1000;
        watched.signals = first ? 1 : 2;
        // Somebody outside the group may hold the other end, and never read.
        if (!first && watched.input >= 0)
            fcntl(watched.input, F_SETFL, O_NONBLOCK);
    }
    errno = saved;
}

static void set_timer(bool on)
{
    itimerval every = {};
    every.it_interval.tv_sec = every.it_value.tv_sec = on;
    setitimer(ITIMER_REAL, &every, nullptr);
}

static watched_t *find(pid_t group)
{
    watched_t *found = std::find_if(std::begin(table), std::end(table),
                                    [group](const watched_t &watched) { return watched.group == group; });
    return found == std::end(table) ? nullptr : found;
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

void set_command_seconds(unsigned seconds, unsigned grace)
{
    limit_seconds = seconds;
    grace_seconds = grace;
    // The handler stays: a last SIGALRM may be pending when the timer has been stopped. SA_RESTART, because
    // an interrupted write would cut a mail in the middle.
    struct sigaction action = {};
    action.sa_handler = end_overdue;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    sigprocmask(SIG_UNBLOCK, &alarm, nullptr);
}

unsigned command_seconds()
{
    return limit_seconds;
}

bool has_room_for_command()
{
    return find(0) != nullptr;
}

void begin_time_limit(pid_t group, int input)
{
    const alarm_blocked blocked;
    watched_t *free = find(0);
    if (!free)
        return;
    const bool limited = limit_seconds != 0;
    *free = {group, input, limited ? milliseconds_now() + int64_t{limit_seconds} * 1000 : no_deadline, 0};
    if (limited)
        set_timer(true);
}

// Whether anybody is left in the group.
static bool is_alive(pid_t group)
{
    return kill(-group, 0) == 0 || errno != ESRCH;
}

bool end_time_limit(pid_t group)
{
    watched_t *watched = find(group);
    if (!watched)
        return false;
    // A shell may end at the first signal while what it has started still cleans up: that has until the
    // second.
    while (watched->signals == 1 && is_alive(group))
        poll(nullptr, 0, 10);
    const alarm_blocked blocked;
    const bool overdue = watched->signals > 0;
    *watched = {};
    if (std::all_of(std::begin(table), std::end(table), [](const watched_t &w) { return w.group == 0; }))
        set_timer(false);
    return overdue;
}

void kill_commands()
{
    for (const watched_t &watched : table)
        if (watched.group != 0)
            kill(-watched.group, SIGKILL);
}

}  // namespace faxtray
