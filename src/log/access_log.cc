// The file is opened for each line, so that it can be renamed at any time, and a line is one write. All
// memory is static: neither long names nor many clients can exhaust it.
#include "log/access_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>

#include "util/file_lock.h"
#include "util/owned.h"
#include "util/settings.h"

namespace faxtray {

static constexpr size_t address_size = 64, name_size = 256;

// The current request; `procedure` is never 0 once there is one.
static struct {
    time_t when;
    char peer[address_size], port[8], user[name_size];
    bool has_user;
    unsigned procedure;
    unsigned fax_id;
} request;

// One line.

namespace {

// A line as it is put together: "time=... event=...", then what is added to it.
class line_t {
public:
    line_t(const char *event, const char *peer)
    {
        add("time", time(nullptr));
        add("event", event);
        add("peer", peer);
    }

    // Adds "key=value", the value escaped and cut to `most_bytes`; nothing for a null value.
    void add(const char *key, const char *value, size_t most_bytes = 4096)
    {
        if (!value)
            return;
        put(' ');
        put_all(key);
        put('=');
        for (const char *end = value + strnlen(value, most_bytes); value < end; value++)
            put_escaped(*value);
    }
    void add(const char *key, unsigned value)
    {
        char digits[16];
        *std::to_chars(digits, std::end(digits), value).ptr = '\0';
        add(key, digits);
    }
    void add(const char *key, time_t when)
    {
        char text[32] = "";
        struct tm utc = {};
        gmtime_r(&when, &utc);
        strftime(text, sizeof text, "%FT%TZ", &utc);
        add(key, text);
    }

    void write();

private:
    void put(char ch)
    {
        if (length_ < sizeof text_ - 1)  // the last byte is for the line feed
            text_[length_++] = ch;
    }
    void put_all(const char *text)
    {
        while (*text)
            put(*text++);
    }
    void put_escaped(char ch)
    {
        if (ch > ' ' && ch <= '~' && ch != '\\' && ch != '"' && ch != '\'')
            return put(ch);
        char hex[8];
        snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned char>(ch));
        put_all(hex);
    }

    // The longest paths and names, all of it escaped. The first byte is a blank, or the end of a torn line.
    char text_[4 * (2 * 4096 + 2 * name_size) + 512];
    size_t length_ = 0;
};

// Appends the line to the file. After a write that broke off, the next line begins with a line feed, so that
// it stands alone.
void line_t::write()
{
    static bool torn;
    static unsigned lost;
    text_[length_++] = '\n';
    text_[0] = '\n';
    const char *start = torn ? text_ : text_ + 1;
    const auto size = static_cast<ssize_t>(text_ + length_ - start);

    char path[sizeof dvWork_dir + 16];
    snprintf(path, sizeof path, "%s/access_log", dvWork_dir);
    // O_NONBLOCK: if somebody has put a FIFO there, nobody waits for its reader.
    const unique_fd fd(open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0640));
    const appending between_hosts(fd.get());
    const ssize_t written = fd ? ::write(fd.get(), start, static_cast<size_t>(size)) : -1;
    if (written == size) {
        torn = false;
        if (lost > 0)
            fprintf(stderr, "access_log: %u lines of \"%s\" are missing.\n", lost, path);
        lost = 0;
        return;
    }
    torn |= written > 0;
    if (lost++ == 0)
        fprintf(stderr, "access_log: Can't write \"%s\": %s\n", path, strerror(written < 0 ? errno : ENOSPC));
}

// errno as it was: callers report failures of their own after logging them here.
class errno_keeper {
public:
    ~errno_keeper() { errno = saved_; }

private:
    int saved_ = errno;
};

}  // namespace

// A line on the current request and, if `path` is not null, a fax.
static line_t line_on(const char *event, unsigned fax_id, const char *path)
{
    line_t line(event, request.peer);
    line.add("port", request.port);
    line.add("user", request.has_user ? request.user : nullptr);
    line.add("procedure", request.procedure);
    if (fax_id != 0)
        line.add("id", fax_id);
    line.add("fax", path);
    return line;
}

// How many lines an address gets: anybody can cause some events at any rate.

static constexpr unsigned most = 10;      // lines
static constexpr time_t minute = 60;      // from the first of them
static constexpr size_t addresses = 100;  // that are counted one by one; all others are counted together

namespace {

// What one address has caused since the first event of its minute.
struct window_t {
    char peer[address_size];
    time_t since;
    unsigned count;  // 0: not in use
};

// A kind of event that is limited.
struct limit_t {
    const char *event;
    window_t windows[addresses + 1];  // the last is that of all others
};

}  // namespace

static limit_t refusals = {"password", {}}, unchecked_reads = {"fetch", {}};
static size_t open_windows;

// Ends the windows whose minute is over at `now`, also when the clock was set back; with 0, all of them.
static void close_windows(time_t now)
{
    for (limit_t *limit : {&refusals, &unchecked_reads})
        for (window_t &window : limit->windows) {
            const bool open = now >= window.since && now - window.since < minute;
            if (window.count == 0 || open)
                continue;
            if (window.count > most) {
                line_t line(limit->event, window.peer);
                line.add("more", window.count - most);
                line.add("since", window.since);
                line.write();
            }
            window = {};
            open_windows--;
        }
}

// Counts an event of the current request. True if it is one of the first of its address.
static bool gets_a_line(limit_t &limit)
{
    static const bool at_exit = atexit([] { close_windows(0); }) == 0;
    (void)at_exit;  // if that failed, the last counts of this run are lost
    window_t *const others = limit.windows + addresses;
    window_t *window = std::find_if(limit.windows, others, [](const window_t &used) {
        return used.count > 0 && strcmp(used.peer, request.peer) == 0;
    });
    if (window == others)
        window = std::find_if(limit.windows, others, [](const window_t &free) { return free.count == 0; });
    if (window->count == 0) {
        snprintf(window->peer, sizeof window->peer, "%s", window == others ? "others" : request.peer);
        window->since = request.when;
        open_windows++;
    }
    return ++window->count <= most;
}

// The events.

void access_request(const access_request_t &now)
{
    const errno_keeper keeper;
    if (open_windows > 0 && now.when != request.when)
        close_windows(now.when);
    request.when = now.when;
    snprintf(request.peer, sizeof request.peer, "%s", now.peer);
    snprintf(request.port, sizeof request.port, "%s", now.port);
    snprintf(request.user, sizeof request.user, "%s", now.user ? now.user : "");
    request.has_user = now.user;
    request.procedure = now.procedure;
    request.fax_id = now.fax_id;
}

// Whether a chunk belongs to a read that has been logged: on the same connection or, for clients that connect
// anew for each chunk, where the last one from their host ended. Remembers it in either case. Of more reads
// at a time than there is room for, the oldest are forgotten, and logged again.
static bool continues_read(unsigned offset, unsigned length)
{
    struct read_t {
        char peer[address_size], port[sizeof request.port];
        unsigned fax_id, end;
    };
    static read_t reads[256];
    static size_t next;
    read_t *read = std::find_if(std::begin(reads), std::end(reads), [offset](const read_t &known) {
        return known.fax_id == request.fax_id && strcmp(known.peer, request.peer) == 0 &&
               (strcmp(known.port, request.port) == 0 || known.end == offset);
    });
    const bool known = offset > 0 && read != std::end(reads);
    if (read == std::end(reads))
        read = &reads[next++ % std::size(reads)];
    memcpy(read->peer, request.peer, sizeof read->peer);
    memcpy(read->port, request.port, sizeof read->port);
    read->fax_id = request.fax_id;
    read->end = offset + length;
    return known;
}

void access_fetch(const char *path, unsigned offset, unsigned length, bool checked)
{
    const errno_keeper keeper;
    if (request.procedure == 0 || continues_read(offset, length))
        return;
    // Without a password anybody can begin reads like this one, at any rate.
    if (!checked && !gets_a_line(unchecked_reads))
        return;
    line_t line = line_on("fetch", request.fax_id, path);
    line.add("result", "ok");
    char detail[64];
    snprintf(detail, sizeof detail, "%sfrom-byte-%u", checked ? "" : "unchecked-", offset);
    line.add("detail", offset > 0 ? detail : nullptr);
    line.write();
}

void access_removal(const char *path, unsigned fax_id, int error)
{
    if (request.procedure == 0)
        return;
    const errno_keeper keeper;
    line_t line = line_on("remove", fax_id, path);
    line.add("result", error == 0 ? "ok" : "failed");
    line.add("detail", error == 0 ? nullptr : strerror(error));
    line.write();
}

void access_delivery(const char *path, const char *recipient, const char *became, const char *result,
                     const char *detail)
{
    if (request.procedure == 0)
        return;
    const errno_keeper keeper;
    line_t line = line_on("deliver", request.fax_id, path);
    line.add("to", recipient, name_size - 1);
    line.add("as", became);
    line.add("result", result);
    line.add("detail", detail);
    line.write();
}

void access_refusal(const char *detail)
{
    const errno_keeper keeper;
    if (request.procedure == 0 || !gets_a_line(refusals))
        return;
    line_t line = line_on("password", request.fax_id, nullptr);
    line.add("result", "refused");
    line.add("detail", detail);
    line.write();
}

}  // namespace faxtray
