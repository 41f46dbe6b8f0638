// A child reports by its exit status what it has changed: the count of the day's notices.
#include "daemon/notice_queue.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <new>
#include <string>
#include <utility>

#include "daemon/signals.h"
#include "deliver/admin_notice.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "rpc/rpc_loop.h"
#include "util/settings.h"

namespace faxtray {

static constexpr size_t most_waiting = 64;

// Bits of a child's exit status. Not 1, which is a failure's.
static constexpr int sent_one = 2, count_began_anew = 4;

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

static std::deque<entry_t> waiting;
static pid_t running;  // 0: none
static size_t lost;    // entries, since their number was last told

// The exception log's callback. Any code at all may be writing the entry, so the child is started later.
static void keep_entry(const elog_entry_t &entry) noexcept
try {
    if (!*dvLog_callbacks && !entry.notify)
        return;
    if (waiting.size() >= most_waiting) {
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
    rpc_leave();
    admin_notice_init();
    elog_toggle_notify(1);  // what is logged on the way asks for no notice
    admin_notice_handle(entry.whole());
    const notices_sent_t sent = admin_notices_sent();
    fflush(nullptr);
    _exit((sent.count > 0 ? sent_one : 0) | (sent.anew ? count_began_anew : 0));
}

void notices_begin()
{
    if (running != 0)
        return;
    if (waiting.empty() && lost > 0) {
        const size_t count = std::exchange(lost, 0);
        log_only({ELOG_WARNING, elog_file_and_stderr},
                 "%zu entries before this one were too many at once: no notices of them.", count);
    }
    if (waiting.empty())
        return;
    const pid_t child = fork_worker();
    if (child == 0)
        handle_in_child(waiting.front());
    if (child < 0) {  // the next entry tries again
        fprintf(stderr, "Trayd: Can't start a process for notices: %s\n", strerror(errno));
        return;
    }
    running = child;
    waiting.pop_front();
}

bool notice_has_ended(pid_t child, int status)
{
    if (running == 0 || child != running)
        return false;
    running = 0;
    const int report = WIFEXITED(status) ? WEXITSTATUS(status) : 1;
    if ((report & ~(sent_one | count_began_anew)) != 0)
        fprintf(stderr, "Trayd: A notice has ended early: wait status 0x%x.\n",
                static_cast<unsigned>(status));
    else
        admin_notices_add({(report & sent_one) != 0, (report & count_began_anew) != 0});
    return true;
}

bool notices_are_left()
{
    return running != 0 || !waiting.empty();
}

void notices_kill()
{
    if (running != 0)
        kill(running, SIGTERM);
    const size_t count = waiting.size() + lost + (running != 0);
    if (count > 0)
        fprintf(stderr, "Trayd: No notices of the last %zu entries of the exception log.\n", count);
}

}  // namespace faxtray
