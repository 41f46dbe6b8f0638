// Writes the lines of the exception log. Failures of the log itself are reported on standard error and by the
// result; they never stop the caller.
//
// The file is opened and closed for each entry: an administrator may move it away at any time, and the next
// entry then creates a new one.
#include "log/exception_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "util/clock_text.h"
#include "util/file_lock.h"
#include "util/owned.h"
#include "util/version_id.h"

namespace faxtray {

static constexpr size_t template_size = 512;  // characters of a format that count

static char log_name[4096];      // empty until elog_init
static char program_name[4096];  // in every trailer
static int queue_number = 1;
static int notices_off;  // set by elog_toggle_notify
static bool notifying;   // the callback is running: what it logs asks for no notice, or it would never end
static void (*entry_callback)(const elog_entry_t &entry) noexcept;

namespace {

// The formatted text of an entry. The buffer suffices for nearly every message, so that running out of memory
// can be logged too; a longer text is allocated, or cut when there is no memory for it. If the arguments
// cannot be formatted, the text is the format itself.
class formatted_text {
public:
    __attribute__((format(printf, 2, 0))) formatted_text(const char *format, va_list args)
    {
        va_list again;
        va_copy(again, args);
        int length = vsnprintf(short_, sizeof short_, format, args);
        if (length < 0)
            snprintf(short_, sizeof short_, "%s", format);
        else if (static_cast<size_t>(length) >= sizeof short_)
            format_long(static_cast<size_t>(length) + 1, format, again);
        va_end(again);
    }

    const char *text() const { return long_ ? long_.get() : short_; }

private:
    __attribute__((format(printf, 3, 0))) void format_long(size_t size, const char *format, va_list args)
    {
        long_.reset(static_cast<char *>(malloc(size)));
        if (long_)
            vsnprintf(long_.get(), size, format, args);
    }

    char short_[2048];
    c_string long_;
};

}  // namespace

int elog_init(const char *program, const char *log_file, int queue)
{
    if (!log_file || !*log_file)
        return 0;
    snprintf(log_name, sizeof log_name, "%s", log_file);
    snprintf(program_name, sizeof program_name, "%s", program ? program : "");
    queue_number = queue < 1 ? 1 : queue;
    return 1;
}

int elog_toggle_notify(int on)
{
    int before = notices_off;
    notices_off = on;
    return before;
}

void elog_set_notifier(void (*notifier)(const elog_entry_t &entry) noexcept)
{
    entry_callback = notifier;
}

static const char *level_name(int level)
{
    static constexpr const char *names[] = {"FATAL", "ERROR", "WARNING", "NOTICE"};
    return level >= ELOG_FATAL && level <= ELOG_NOTICE ? names[level] : "HUH";
}

// "21-Nov-2026 03:44:21 WARNING:  "
static void make_prefix(char *out, size_t size, int level)
{
    time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    snprintf(out, size, "%02d-%s-%04d %02d:%02d:%02d %7.7s:  ", local.tm_mday, months[local.tm_mon],
             local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec, level_name(level));
}

static void make_trailer(char *out, size_t size, const char *version_id, const char *source_file, int line)
{
    // rev_release() parses the string; asked with null, the others return fields of that parse. A string that
    // lacks one of its nine fields has none at all.
    const char *release = version_id && *version_id ? rev_release(version_id) : nullptr;
    const char *level = release ? rev_level(nullptr) : "";
    const char *branch = release ? rev_branch(nullptr) : "";
    const char *sequence = release ? rev_sequence(nullptr) : "";
    snprintf(out, size, "  //%s [%s:%d] %s.%s.%s.%s\n", program_name, source_file ? source_file : "(NULL)",
             line, release ? release : "", level, branch, sequence);
}

// Returns the number of bytes written, negative on failure. A line that fits the stream's buffer is written
// by one system call, so that lines of other processes do not end up in the middle of it.
static int write_line(FILE *stream, const char *prefix, const char *message, const char *trailer)
{
    const appending between_hosts(fileno(stream));
    int written = fprintf(stream, "%s%s%s", prefix, message, trailer);
    return fflush(stream) == 0 ? written : -1;
}

// Opens the log file for appending; null if that fails, with the reason on standard error.
static file_ptr open_log(const char *version_id, const char *source_file, int line, int destinations)
{
    const char *path = (destinations & ELOG_FILE) && *log_name ? log_name : "/dev/null";
    file_ptr log(fopen(path, "ae"));
    if (!log) {
        fprintf(stderr, "elog_writef:  failed to fopen(\"%s\"),errno=%d,", path, errno);
        fprintf(stderr, "%s,%s,%d\n", version_id ? version_id : "", source_file ? source_file : "(NULL)",
                line);
    }
    return log;
}

// The part of the format that counts. The line ends after the trailer, not within the message.
static void cut_format(char (&out)[template_size + 1], const char *format)
{
    snprintf(out, sizeof out, "%s", format ? format : "");
    for (size_t n = strlen(out); n > 0 && out[n - 1] == '\n'; n--)
        out[n - 1] = '\0';
}

int elog_writef(const char *version_id, const char *source_file, int line, int level, int destinations,
                const char *format, ...)
{
    va_list args;
    va_start(args, format);
    int result = elog_vwritef(version_id, source_file, line, level, destinations, format, args);
    va_end(args);
    return result;
}

int elog_vwritef(const char *version_id, const char *source_file, int line, int level, int destinations,
                 const char *format, va_list args)
{
    int saved_errno = errno;

    // Without the file the entry is not lost: it goes to standard error, unless that gets it anyway. Kept: a
    // mask of 0 opens a stream that nothing is written to.
    const bool wants_file = destinations == 0 || (destinations & ELOG_FILE);
    file_ptr log = wants_file ? open_log(version_id, source_file, line, destinations) : nullptr;
    FILE *stream = log || (destinations & ELOG_STDERR) ? log.get() : stderr;
    int result = wants_file && !log ? 0 : 1;

    char prefix[64], trailer[3 * 4096];
    make_prefix(prefix, sizeof prefix, level);
    make_trailer(trailer, sizeof trailer, version_id, source_file, line);

    char message_template[template_size + 1];
    cut_format(message_template, format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // the caller's literal, cut
    const formatted_text message(message_template, args);
#pragma GCC diagnostic pop

    // Only the log file's copy says where in the code; people at a terminal need not know.
    int written = 0;
    if ((destinations & ELOG_FILE) && stream) {
        written = write_line(stream, prefix, message.text(), trailer);
        if (written < 0)
            result = 0;
    }
    if (destinations & ELOG_STDOUT)
        written = write_line(stdout, prefix, message.text(), "\n");
    if (destinations & ELOG_STDERR)
        written = write_line(stderr, prefix, message.text(), "\n");
    if (log && fclose(log.release()) != 0)
        result = 0;

    if (entry_callback) {
        const bool notify = !notifying && !notices_off;
        const bool nested = std::exchange(notifying, true);
        entry_callback(
            {level, queue_number, prefix, message.text(), format ? format : "", trailer, written, notify});
        notifying = nested;
    }
    errno = saved_errno;
    return result;
}

}  // namespace faxtray
