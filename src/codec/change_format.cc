// Re-codes a fax file into another beside it, page by page, and moves that over the first once it is whole.
#include "codec/change_format.h"

#include <endian.h>
#include <fcntl.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "codec/fast_encoder.h"
#include "codec/line_assembler.h"
#include "codec/t4_codes.h"
#include "codec/t4_decoder.h"
#include "codec/t4_encoder.h"
#include "disk/files.h"
#include "disk/work_note.h"
#include "faxfile/fax_header.h"
#include "util/owned.h"

namespace faxtray {

static constexpr int line_width = changes_width;
static constexpr size_t first_capacity = 512 * 1024, growth = 64 * 1024, max_capacity = 256 * 1024 * 1024;
static constexpr long max_lines = max_capacity / changes_line_bytes;  // what there is room for
static constexpr size_t piece_size = 4096;

namespace {

using byte_ptr = std::unique_ptr<unsigned char, deleter<free>>;

enum : int { MH = 0, MR = 1, MMR = 3 };  // DF codes

// The conversion under way. The decoder's and the encoder's callbacks have no argument to find it by.
struct Oconv_st {
    byte_ptr lines;  // decoded lines of the page
    size_t capacity = 0, used = 0;
    fast_encoder_t *encoder = nullptr;  // where lines go instead when they are not collected

    int fd = -1;            // output file
    off_t offset = 0;       // where in it the next bytes go
    size_t page_bytes = 0;  // coded data of the page
    size_t pending = 0;     // bytes of `piece` not yet written
    int write_error = 0;    // of the first write that failed; nothing more is written then
    unsigned char piece[piece_size];
};

}  // namespace

static Oconv_st conversion;

// Decoded lines

// Room for one more line, if it can be had. The steps are small, but at this size the system moves no bytes:
// it maps the block elsewhere, so lines cost the same however many there are.
static void grow_lines()
{
    if (conversion.capacity >= max_capacity)
        return;
    const size_t capacity = conversion.lines ? conversion.capacity + growth : first_capacity;
    void *grown = realloc(conversion.lines.get(), capacity);
    if (!grown)
        return;
    static_cast<void>(conversion.lines.release());
    conversion.lines.reset(static_cast<unsigned char *>(grown));
    conversion.capacity = capacity;
}

void fp_found_line(const unsigned char *line, int bytes)
{
    const auto size = static_cast<size_t>(bytes);
    if (size > conversion.capacity - conversion.used)
        grow_lines();
    if (size > conversion.capacity - conversion.used)
        return;
    memcpy(conversion.lines.get() + conversion.used, line, size);
    conversion.used += size;
}

int fp_getdataf(const unsigned char **lines, int *count)
{
    if (conversion.used == 0)
        return -1;
    const int bytes = (Pix_width + 7) / 8;
    *lines = conversion.lines.get();
    *count = static_cast<int>(conversion.used) / bytes;
    conversion.used = 0;
    return bytes;
}

// Output

// Writes all, whatever the system takes at a time, unless an earlier write failed.
static bool write_at(const void *bytes, size_t n, off_t offset)
{
    for (auto *at = static_cast<const unsigned char *>(bytes); n > 0 && !conversion.write_error;) {
        const ssize_t put = pwrite(conversion.fd, at, n, offset);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0) {
            conversion.write_error = put < 0 ? errno : EIO;
            break;
        }
        at += put;
        offset += put;
        n -= static_cast<size_t>(put);
    }
    return !conversion.write_error;
}

static bool write_piece()
{
    const bool written = write_at(conversion.piece, conversion.pending, conversion.offset);
    conversion.offset += static_cast<off_t>(conversion.pending);
    conversion.pending = 0;
    return written;
}

// The low byte of each word comes first: decoders take bytes in file order, each from its least significant
// bit.
int fp_putdataf(const uint16_t *words, int count)
{
    for (int done = 0; done < count;) {
        const int now = std::min(count - done, static_cast<int>((piece_size - conversion.pending) / 2));
        for (int i = 0; i < now; i++) {
            const uint16_t word = htole16(words[done + i]);
            memcpy(conversion.piece + conversion.pending + 2 * i, &word, sizeof word);
        }
        conversion.pending += 2 * static_cast<size_t>(now);
        if (conversion.pending == piece_size && !write_piece())
            return -1;
        done += now;
    }
    conversion.page_bytes += static_cast<size_t>(count) * 2;
    return count * 2;
}

// Input

namespace {

struct input_t {
    const char *path;
    unique_fd fd;
    fax_header_ptr header;
    off_t left = 0;  // bytes of the file not yet read
    byte_ptr page;   // coded data of a page
    size_t capacity = 0;
};

enum class outcome { done, skipped, failed };

}  // namespace

// Reads as many bytes as there are, up to `n`.
static size_t read_bytes(input_t &in, void *bytes, size_t n)
{
    size_t done = 0;
    while (done < n) {
        const ssize_t got = read(in.fd.get(), static_cast<char *>(bytes) + done, n - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
    }
    in.left -= static_cast<off_t>(done);
    return done;
}

static outcome report_short_page(const input_t &in, uint32_t length, size_t got)
{
    fprintf(stderr, "t4dec_change_format: data_len=%d, read_len=%d\n", static_cast<int>(length),
            static_cast<int>(got));
    fprintf(stderr, "t4dec_change_format: Failure reading data from %s.\n", in.path);
    return outcome::failed;
}

// Room for the coded data of a page. Without it the first page fails, a later one is skipped.
static outcome make_room(input_t &in, size_t length)
{
    if (in.page && length <= in.capacity)
        return outcome::done;
    void *room = realloc(in.page.get(), std::max<size_t>(length, 1));
    if (room) {
        static_cast<void>(in.page.release());
        in.page.reset(static_cast<unsigned char *>(room));
        in.capacity = length;
        return outcome::done;
    }
    if (!in.page) {
        fprintf(stderr, "t4dec_change_format: Memory allocation fail.\n");
        return outcome::failed;
    }
    fprintf(stderr, "t4dec_change_format: Couldn't realloc from %d to %d.  Going to next page\n",
            static_cast<int>(in.capacity), static_cast<int>(length));
    const auto skipped = static_cast<off_t>(length);
    in.left -= skipped;
    return lseek(in.fd.get(), skipped, SEEK_CUR) < 0 ? outcome::failed : outcome::skipped;
}

// The coded data of the next page into `in.page`. No memory is asked for more than the file holds.
static outcome read_page(input_t &in, size_t *length)
{
    uint32_t big_endian;
    if (read_bytes(in, &big_endian, sizeof big_endian) < sizeof big_endian) {
        fprintf(stderr, "t4dec_change_format: Short read on data length:  %s\n", in.path);
        return outcome::failed;
    }
    const uint32_t data_length = be32toh(big_endian);
    if (data_length > in.left)
        return report_short_page(in, data_length, static_cast<size_t>(std::max<off_t>(in.left, 0)));
    if (outcome room = make_room(in, data_length); room != outcome::done)
        return room;
    const size_t got = read_bytes(in, in.page.get(), data_length);
    if (got < data_length)
        return report_short_page(in, data_length, got);
    *length = data_length;
    return outcome::done;
}

// Pages

// By way of bitmaps.
static bool recode_lines(const unsigned char *data, size_t length, int from, int to, int vr)
{
    t4_callbacks_t collect;
    collect.line = fp_found_line;
    conversion.used = 0;
    if (!t4dec(data, length, from, collect))
        return false;
    if (to == MH)
        putrunlen(false, T4_EOL, nullptr, fp_found_line, nullptr);
    encode_g3_fax(fp_getdataf, fp_putdataf, to, vr);
    return true;
}

static void recode_line(const unsigned char *line, int /*bytes*/)
{
    if (conversion.encoder->lines() < max_lines)
        conversion.encoder->line(line, false);
}

static void recode_changes(void *, const line_changes_t &line, bool same)
{
    if (conversion.encoder->lines() < max_lines)
        conversion.encoder->line(line, same);
}

// The same bits, without bitmaps of clean lines.
static bool recode_changing_elements(const unsigned char *data, size_t length, int from, int to, int vr)
{
    fast_encoder_t encoder(to, vr == 1 ? 4 : 2, fp_putdataf);
    conversion.encoder = &encoder;
    t4_callbacks_t damaged;
    damaged.line = recode_line;
    if (!t4dec_changes(data, length, from, recode_changes, nullptr, damaged))
        return false;
    if (to == MH)
        putrunlen(false, T4_EOL, nullptr, recode_line, nullptr);
    encoder.finish();
    return true;
}

// The coded data of one page from one coding to the other, to the output by way of fp_putdataf. What fails
// there is in `conversion`; false when the decoder fails.
// Kept: to MH the end is an EOL for putrunlen, and since no decoder but that of MH works through it, this
// adds a white line to every page.
static bool recode_page(const unsigned char *data, size_t length, int from, int to, int vr)
{
    const bool by_bitmaps = t4dec_debug() & T4_DEBUG_BITMAPS;
    return (by_bitmaps ? recode_lines : recode_changing_elements)(data, length, from, to, vr);
}

// A page with its length before it.
static bool write_page(const input_t &in, size_t length, int from, int to, int vr)
{
    const off_t start = conversion.offset;
    uint32_t page_bytes = 0;
    conversion.offset += sizeof page_bytes;
    conversion.page_bytes = 0;
    if (!recode_page(in.page.get(), length, from, to, vr)) {
        fprintf(stderr, "t4dec_change_format: Failure decoding a page of %s.\n", in.path);
        return false;
    }
    page_bytes = htobe32(static_cast<uint32_t>(conversion.page_bytes));
    if (write_piece() && write_at(&page_bytes, sizeof page_bytes, start))
        return true;
    fprintf(stderr, "t4dec_change_format: Failure writing the pages of %s: %s\n", in.path,
            strerror(conversion.write_error));
    return false;
}

static bool recode_pages(input_t &in, int from, int to, int vr, void (*progress)())
{
    const char *count = get_fax_header_value(in.header.get(), "#PAGES");
    for (long pages = count ? strtol(count, nullptr, 10) : 0; pages > 0; pages--) {
        size_t length;
        const outcome read = read_page(in, &length);
        if (read == outcome::failed)
            return false;
        if (read == outcome::skipped)
            continue;
        if (progress)
            progress();
        if (!write_page(in, length, from, to, vr))
            return false;
    }
    return true;
}

// Files

namespace {

// The file beside the input, removed unless it could be moved over that.
class output_file {
public:
    explicit output_file(const char *input)
    {
        const int n = snprintf(path_, sizeof path_, "%s.%d", input, static_cast<int>(getpid()));
        if (n >= MAXPATHLEN)
            return;
        note_will_make(path_);
        fd_.reset(open(path_, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644));
        made_ = static_cast<bool>(fd_);
        if (made_)
            note_made(path_);
    }
    ~output_file()
    {
        if (made_)
            unlink(path_);
    }
    output_file(const output_file &) = delete;
    output_file &operator=(const output_file &) = delete;

    int fd() const { return fd_.get(); }

    // Onto the disk first, so that no crash leaves less than the input was.
    bool move_to(const char *path)
    {
        const bool synced = fsync(fd_.get()) == 0;
        if (close(fd_.release()) != 0 || !synced) {
            fprintf(stderr, "t4dec_change_format: Failure writing %s: %s\n", path_, strerror(errno));
            return false;
        }
        made_ = !cv_move(path_, path);
        if (made_)
            fprintf(stderr, "t4dec_change_format: cv_move(\"%s\",\"%s\") failure.\n", path_, path);
        return !made_;
    }

private:
    char path_[MAXPATHLEN + 16];
    unique_fd fd_;
    bool made_ = false;
};

}  // namespace

// Opens the file and reads its header. Does not wait for the other end of a pipe, which is no fax.
static bool open_input(input_t &in)
{
    in.fd.reset(open(in.path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!in.fd) {
        fprintf(stderr, "t4dec_change_format: Failed to open %s to determine compression\n", in.path);
        return false;
    }
    in.header.reset(read_fax_header(in.fd.get()));
    struct stat st;
    const off_t at = lseek(in.fd.get(), 0, SEEK_CUR);
    if (!in.header || at < 0 || fstat(in.fd.get(), &st) != 0) {
        fprintf(stderr, "t4dec_change_format: Bad fax file: %s\n", in.path);
        return false;
    }
    in.left = st.st_size - at;
    return true;
}

// The VR code of a file whose lines we can code, or -1.
static int accept_resolution(const input_t &in)
{
    const int vr = get_vertical_resolution(in.header.get());
    if (vr < 0) {
        fprintf(stderr, "t4dec_change_format: Could not determine resolution: %s\n", in.path);
        return -1;
    }
    if (vr > 1) {
        // Kept: the code, not its character.
        fprintf(stderr, "t4dec_change_format: Can't handle type \"%c\" resolution yet.\n", vr);
        return -1;
    }
    return vr;
}

static int change_format(input_t &in, int to, void (*progress)())
{
    if (!open_input(in))
        return 0;
    const int from = get_compression_mode(in.header.get());
    if (from < 0) {
        fprintf(stderr, "t4dec_change_format: Could not determine compression: %s\n", in.path);
        return 0;
    }
    if (from == to)
        return 1;
    const int vr = accept_resolution(in);
    if (vr < 0)
        return 0;

    t4dec_set_pixel_width(line_width);
    output_file out(in.path);
    if (out.fd() < 0) {
        fprintf(stderr, "t4dec_change_format: Failure opening %s.\n", in.path);
        return 0;
    }
    if (set_compression_mode(in.header.get(), to) != 1 || write_fax_header(out.fd(), in.header.get()) != 1)
        return 0;
    conversion.fd = out.fd();
    conversion.offset = lseek(out.fd(), 0, SEEK_CUR);
    return recode_pages(in, from, to, vr, progress) && out.move_to(in.path);
}

int t4dec_change_format(const char *path, int df, int /*ignored*/, void (*progress)())
{
    if (df != MH && df != MR && df != MMR) {
        fprintf(stderr, "t4dec_change_format: Unsupported compression: %d.\n", df);
        return 0;
    }
    input_t in;
    in.path = path;
    conversion = {};
    putrunlen(true, 0, nullptr, nullptr, nullptr);
    const int result = change_format(in, df, progress);
    conversion = {};
    return result;
}

}  // namespace faxtray
