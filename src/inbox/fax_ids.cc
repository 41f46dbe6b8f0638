// The file is one line, a decimal number: no id from there on was given out, all below may have been. It is
// raised by whole blocks, and is on the disk before the first id of the block leaves: a crash wastes a part
// of a block. It is replaced by rename; "fax_ids.HOST.new" is what a crash may leave beside it, and is
// overwritten.
#include "inbox/fax_ids.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "disk/files.h"
#include "log/report.h"
#include "util/io.h"
#include "util/owned.h"
#include "util/settings.h"

namespace faxtray {

// Ids are 32 bits on the wire. Beyond them they start again at 1, which is far off: the time gets there in
// 2106.
static constexpr uint64_t end_of_ids = uint64_t{UINT32_MAX} + 1;

// Without the file nobody knows how far above the time the ids of earlier runs are: this much is allowed for.
static constexpr unsigned long long margin = 1'000'000;

// Ids reserved at a time: few at first, so that restarts waste few, then more, since each block is a wait for
// the disk and the first scan of a large inbox takes as many ids as it has faxes.
static constexpr uint64_t first_block = 1024, largest_block = 65536;

static uint64_t next_id;       // 0: the file has not been read yet
static uint64_t reserved_end;  // ids below may be given out: the number in the file

static const char *file_path()
{
    static char path[sizeof dvWork_dir + sizeof(utsname::nodename) + 16];
    struct utsname host = {};
    uname(&host);
    snprintf(path, sizeof path, "%s/fax_ids.%s", dvWork_dir, host.nodename);
    return path;
}

// The number in the file; 0, with the reason, if there is none.
static uint64_t read_number(const char *path, const char **reason)
{
    const unique_fd fd(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    char text[16];
    const ssize_t n = fd ? read_full(fd.get(), text, sizeof text) : -1;
    *reason = n < 0 ? strerror(errno) : "damaged";
    uint64_t number = 0;
    if (n <= 0 || text[n - 1] != '\n')
        return 0;
    const auto [end, error] = std::from_chars(text, text + n - 1, number);
    return error == std::errc() && end == text + n - 1 && number <= end_of_ids ? number : 0;
}

// Replaces the file. False with errno.
static bool write_number(const char *path, uint64_t number)
{
    char staged[sizeof dvWork_dir + sizeof(utsname::nodename) + 24], text[24];
    snprintf(staged, sizeof staged, "%s.new", path);
    unlink(staged);
    unique_fd fd(open(staged, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    if (!fd)
        return false;
    const int n = snprintf(text, sizeof text, "%llu\n", static_cast<unsigned long long>(number));
    if (write_full(fd.get(), text, static_cast<size_t>(n)) && put_in_place(std::move(fd), staged, path, true))
        return true;
    const int error = errno;
    unlink(staged);
    errno = error;
    return false;
}

static uint64_t first_id(const char *path)
{
    const uint64_t now = static_cast<uint64_t>(time(nullptr)) + 1;
    const char *reason;
    if (const uint64_t number = read_number(path, &reason))
        return std::max(now, number);
    report_as_program("newid: \"%s\": %s: ids begin %llu above the time\n", path, reason, margin);
    return now + margin;
}

// Reserves the next block of ids.
static void reserve()
{
    static uint64_t block = first_block;
    const char *path = file_path();
    if (next_id == 0)
        next_id = first_id(path);
    else
        block = std::min(4 * block, largest_block);
    if (next_id >= end_of_ids) {
        report_as_program("newid: all ids are used up: they begin at 1 again\n");
        next_id = 1;
    }
    reserved_end = std::min(next_id + block, end_of_ids);
    if (!write_number(path, reserved_end))
        report_as_program("newid: \"%s\": %s: the next start may give out the same ids\n", path,
                          strerror(errno));
}

faxid_t newid()
{
    if (next_id == reserved_end)
        reserve();
    return static_cast<faxid_t>(next_id++);
}

}  // namespace faxtray
