// An entry waits for its child until the loop is back, since any code at all may have written it.
#include "daemon/notice_queue.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "daemon/signals.h"
#include "deliver/admin_notice.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "rpc/rpc_loop.h"
#include "util/session.h"
#include "util/settings.h"

namespace faxtray {

static constexpr size_t most_children = 8;

namespace {

// An elog_entry_t that lasts.
struct entry_t {
    explicit entry_t(const elog_entry_t &entry)
        : fields(entry), prefix(entry.prefix), message(entry.message), format(entry.format),
          trailer(entry.trailer)
    {
    }
    elog_entry_t whole() const
    {
        elog_entry_t entry = fields;
        entry.prefix = prefix.c_str();
        entry.message = message.c_str();
        entry.format = format.c_str();
        entry.trailer = trailer.c_str();
        return entry;
    }

    elog_entry_t fields;  // without the texts
    std::string prefix, message, format, trailer;
};

}  // namespace

static std::vector<entry_t> waiting;  // for the loop, or for fork() to succeed
static pid_t running[most_children];  // 0: none
static size_t lost;                   // entries, since their number was last told

static size_t count_running()
{
    return most_children - static_cast<size_t>(std::count(std::begin(running), std::end(running), 0));
}

static bool has_room()
{
    return count_running() + waiting.size() < most_children;
}

// The exception log's callback.
static void keep_entry(const elog_entry_t &entry) noexcept
try {
    if (!*dvLog_callbacks && !entry.notify)
        return;
    if (!has_room()) {
        lost++;
        return;
    }
    waiting.emplace_back(entry);
    signals_wake();
} catch (const std::bad_alloc &) {
    lost++;
}

void notice_queue_init()
{
    elog_set_notifier(keep_entry);
}

[[noreturn]] static void handle_in_child(const entry_t &entry)
{
    setsid();  // by which the daemon finds our commands, should we die
    rpc_leave();
    admin_notice_init();
    elog_toggle_notify(1);  // what is logged on the way asks for no notice
    admin_notice_handle(entry.whole());
    fflush(nullptr);
    _exit(0);
}

// False, with a message, without a process.
static bool start_child(const entry_t &entry)
{
    const pid_t child = fork_worker();
    if (child == 0)
        handle_in_child(entry);
    if (child > 0)
        *std::find(std::begin(running), std::end(running), 0) = child;
    else
        fprintf(stderr, "Trayd: Can't start a process for notices: %s\n", strerror(errno));
    return child > 0;
}

void notices_begin()
{
    if (lost > 0 && has_room()) {
        const size_t count = std::exchange(lost, 0);
        log_only({ELOG_WARNING, elog_file_and_stderr},
                 "%zu entries before this one were too many at once: no notices of them.", count);
    }
    size_t started = 0;
    while (started < waiting.size() && start_child(waiting[started]))
        started++;
    waiting.erase(waiting.begin(), waiting.begin() + static_cast<ptrdiff_t>(started));
}

bool notice_has_ended(pid_t child, int status)
{
    pid_t *ended = std::find(std::begin(running), std::end(running), child);
    if (ended == std::end(running))
        return false;
    *ended = 0;
    if (status != 0) {
        fprintf(stderr, "Trayd: A notice has ended early: wait status 0x%x.\n",
                static_cast<unsigned>(status));
        kill_session(child);  // its command would go on, and finish a mail that was cut off
    }
    return true;
}

bool notices_are_left()
{
    return count_running() > 0 || !waiting.empty();
}

void notices_kill()
{
    for (const pid_t child : running)
        if (child != 0)
            kill(child, SIGTERM);
    const size_t count = count_running() + waiting.size() + lost;
    if (count > 0)
        fprintf(stderr, "Trayd: No notices of the last %zu entries of the exception log.\n", count);
}

}  // namespace faxtray
