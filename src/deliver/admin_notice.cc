// Hands entries of the exception log to the site's command, and mails notices of them to the administrator:
// only of the levels asked for, and only so many a day, so that a fault that repeats does not flood a
// mailbox.
//
// The queue (node_queue.h) holds, for each notice of the last day, the time from which it counts no longer.
// It lives as long as the daemon and is shared with its children, several of which may have an entry to tell
// of at the same time: a restart begins a new day.
#include "deliver/admin_notice.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string>

#include "config/attributes.h"
#include "deliver/node_queue.h"
#include "deliver/notify.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "log/log_callback.h"
#include "registry/regd_client.h"
#include "util/clock_text.h"
#include "util/settings.h"

namespace faxtray {

static constexpr int exception_log_type = 2;      // of run_log_callbacks
static constexpr int default_volume = 5;          // notices a day
static constexpr time_t hold = 24 * 60 * 60;      // seconds that a notice counts against the volume
static constexpr size_t subject_characters = 30;  // of the entry's message

// The administrator's record from the registry; null, with an entry of its own, if there is none.
static av_list_ptr admin_record(int queue)
{
    regd_handle_t *handle = regd_open(nullptr, queue);
    if (!handle) {
        log_only({ELOG_ERROR, elog_file_and_stderr},
                 "elog_writef:  Could not open connection to info server.");
        return nullptr;
    }
    // A copy: the reply is the handle's own, and the notice that follows asks the registry again.
    const av_list_t *entry = regd_get_ui_entry(handle, regd_credentials(), "admin");
    av_list_ptr admin(entry ? av_copy(entry) : nullptr);
    regd_close(handle);
    if (!admin)
        log_only({ELOG_ERROR, elog_file_and_stderr}, "elog_writef:  Could not get the admin record.");
    return admin;
}

// The least severe level for which the administrator wants notices; -1 for none.
static int lowest_level(const av_list_t *admin)
{
    switch (as_get_value_handle_av(AS_ADMIN_NOTIFY_LEVEL, admin)) {
    case IV_NOTIFY_LEVEL_FATAL:
        return ELOG_FATAL;
    case IV_NOTIFY_LEVEL_ERROR:
        return ELOG_ERROR;
    case IV_NOTIFY_LEVEL_WARNING:
        return ELOG_WARNING;
    case IV_NOTIFY_LEVEL_NOTICE:
        return ELOG_NOTICE;
    default:
        return -1;
    }
}

// Notices a day, as the record has it; may be 0. A value that is no number counts as none.
static int daily_volume(const av_list_t *admin)
{
    const av_node_t *node = as_get_av_node(AS_ADMIN_EXCEPTION_VOLUME, admin);
    if (!node)
        return default_volume;
    // Administrators write what they like here, so a huge or negative number is cut, not refused.
    char *end;
    const long volume = strtol(node->value, &end, 10);
    return end == node->value ? default_volume : static_cast<int>(std::clamp(volume, 0L, long{INT_MAX}));
}

// The note that says no more notices will come, and until when: the oldest one's place is the next to be
// free.
static std::string limit_note(int volume)
{
    const time_t release = nhead();
    char note[256];
    snprintf(note, sizeof note,
             "\nThe notification limit of '%d' for the admin's record in the\nUSER_LIST.info file has been "
             "reached.\nFurther notification will be held until: %s",
             volume, cv_ctime(&release));
    return note;
}

// Notices of more than a day ago count no longer.
static void drop_old()
{
    for (const time_t now = time(nullptr); ncount() > 0 && nhead() <= now;)
        ndeq();
}

// Takes a place in the day's volume for the notice of an entry; false if there is none. `note` gets what the
// last one within the limit ends with.
static bool take_place(const elog_entry_t &entry, int volume, std::string &note)
{
    const nlock others_wait;  // who have entries of their own to tell of
    drop_old();
    const bool limited = volume >= 1;
    if (!limited)  // Kept: below 1 is no limit at all, though it looks like none a day.
        npurge();
    else if (ncount() >= volume)
        return false;
    // Kept: what cannot be logged takes no place, so the administrator hears of every such entry.
    if (entry.written >= 0)
        nenq(time(nullptr) + hold);
    if (limited && ncount() == volume)
        note = limit_note(volume);
    return true;
}

// Sends the notice of an entry, which ends in `note`.
static void send_notice(const av_list_t *admin, const elog_entry_t &entry, const std::string &note)
{
    std::string subject = "Ondrix: exception logged", message;
    if (entry.written < 0) {
        message = "elog_writef: Error posting to exception log\n";
    } else {
        message = std::string(entry.prefix) + entry.message;
        // The subject shows the beginning of the message, as far as it fits on a line of a mailbox's list.
        subject += ": " + std::string(entry.message).substr(0, subject_characters);
        subject.resize(std::min(subject.find('\n'), subject.size()));
    }
    message += note;
    notify(admin, subject.c_str(), message.c_str(), IV_WHEN_TO_NOTIFY_FAX_EXCEPTION);
}

// Decides whether the administrator gets a notice of this entry, and sends it.
static void notify_administrator(const elog_entry_t &entry)
{
    const av_list_ptr admin = admin_record(entry.queue);
    if (!admin || entry.level < ELOG_FATAL || entry.level > lowest_level(admin.get()))
        return;
    std::string note;
    if (take_place(entry, daily_volume(admin.get()), note))
        send_notice(admin.get(), entry, note);
}

// The exception log's callback. It is noexcept, because any code at all may have written the entry.
void admin_notice_handle(const elog_entry_t &entry) noexcept
try {
    if (*dvLog_callbacks) {
        // Kept: the format as the code has it, not the message: commands in use search for it.
        const std::string text = std::string(entry.prefix) + entry.format + entry.trailer;
        run_log_callbacks(dvLog_callbacks, exception_log_type, text.c_str());
    }
    if (entry.notify)
        notify_administrator(entry);
} catch (const std::bad_alloc &) {
    if (entry.notify)  // not for what is logged here itself: that would never end
        log_only({ELOG_ERROR, elog_file_and_stderr}, "elog_writef:  Memory allocation error, %d", ENOMEM);
}

void admin_notice_init()
{
    if (!nshare())
        fprintf(stderr, "elog_writef:  Memory allocation error, %d\n", ENOMEM);
    elog_set_notifier(admin_notice_handle);
}

}  // namespace faxtray
