// Re-codes a fax file into another beside it, page by page, and moves that over the first once it is whole.
//
// States on disk: the fax as it was and a growing PATH.PID beside it (PATH.1.PID, PATH.2.PID... where that is
// taken); then the re-coded fax alone. A crash in between leaves PATH.PID, which the work note of the
// delivery names.
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
#include <new>
#include <string>
#include <utility>

#include "codec/fast_encoder.h"
#include "codec/line_assembler.h"
#include "codec/page_coding.h"
#include "codec/t4_codes.h"
#include "codec/t4_decoder.h"
#include "codec/t4_encoder.h"
#include "disk/files.h"
#include "disk/flush.h"
#include "disk/scratch_file.h"
#include "faxfile/fax_header.h"
#include "faxfile/fax_params.h"
#include "util/io.h"
#include "util/owned.h"
#include "util/process_tag.h"

namespace faxtray {

static constexpr int line_width = changes_width;
static constexpr size_t first_capacity = 512 * 1024, growth = 64 * 1024;
static constexpr size_t max_capacity = most_recoded_lines * changes_line_bytes;
static constexpr size_t piece_size = 4096;
static constexpr int most_names = 1000;  // tried for the output

namespace {

using byte_ptr = std::unique_ptr<unsigned char, deleter<free>>;

// The conversion under way. The decoder's and the encoder's
// callbacks have no argument that could point to it.
struct Oconv_st {
    byte_ptr lines;                 // decoded lines of the page, where bitmaps are collected
    size_t capacity = 0, used = 0;  // bytes of `lines`

    int fd = -1;                      // output file
    off_t offset = 0;                 // where in it the next bytes go
    size_t page_bytes = 0;            // coded data of the page
    size_t pending = 0;               // bytes of `piece` not yet written
    int write_error = 0;              // of the first write that failed; nothing more is written then
    unsigned char piece[piece_size];  // gathers small writes
};

}  // namespace

static Oconv_st conversion;

// Decoded lines

// Makes room for more lines, if it can. Growth is linear, but realloc remaps blocks of this size instead of
// copying them, so each line costs the same. The limit is against pages made to exhaust memory: one byte of
// T.6 can be eight lines.
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

// Writes all the bytes, unless an earlier write failed.
static bool write_at(const void *bytes, size_t n, off_t offset)
{
    if (!conversion.write_error && !write_full_at(conversion.fd, bytes, n, offset))
        conversion.write_error = errno;
    return !conversion.write_error;
}

static bool write_piece()
{
    const bool written = write_at(conversion.piece, conversion.pending, conversion.offset);
    conversion.offset += static_cast<off_t>(conversion.pending);
    conversion.pending = 0;
    return written;
}

// The low byte of each word comes first: decoders take bytes
// in file order, each from its least significant bit on.
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
    mode_t mode = 0;      // permissions of the file
    off_t left = 0;       // bytes of the file not yet read
    byte_ptr page;        // coded data of a page; one buffer for all
    size_t capacity = 0;  // of `page`
};

enum class outcome { done, skipped, failed };

}  // namespace

// Reads up to `n` bytes, as many as the file has. A failure to
// read is a short read: there is one message for both.
static size_t read_bytes(input_t &in, void *bytes, size_t n)
{
    const ssize_t got = std::max<ssize_t>(read_full(in.fd.get(), bytes, n), 0);
    in.left -= got;
    return static_cast<size_t>(got);
}

static outcome report_short_page(const input_t &in, uint32_t length, size_t got)
{
    fprintf(stderr, "t4dec_change_format: data_len=%d, read_len=%d\n", static_cast<int>(length),
            static_cast<int>(got));
    fprintf(stderr, "t4dec_change_format: Failure reading data from %s.\n", in.path);
    return outcome::failed;
}

// Makes room for the coded data of a page. Without memory the conversion fails at the first page, but leaves
// out a later one, so that the recipient gets the other pages.
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

// Reads the coded data of the next page into `in.page`. The length is compared with what the file holds
// first, so a false one allocates nothing.
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

// By way of bitmaps of all lines of the page: the plain way, which the other one is tested against.
static bool recode_lines(const unsigned char *data, size_t length, int from, int to, int vr)
{
    t4_callbacks_t collect;
    collect.line = fp_found_line;
    conversion.used = 0;
    if (!t4dec(data, length, from, collect))
        return false;
    if (to == DF_MH)
        putrunlen(false, T4_EOL, nullptr, fp_found_line, nullptr);
    encode_g3_fax(fp_getdataf, fp_putdataf, to, vr);
    return true;
}

// From changing elements to changing elements, without bitmaps of clean lines: the same bits, several times
// faster, and no memory for the page.
static bool recode_changing_elements(const unsigned char *data, size_t length, int from, int to, int vr)
{
    fast_encoder_t encoder(to, vr == 1 ? 4 : 2, fp_putdataf);
    if (!decode_changes(data, length, from, encode_changes, &encoder))
        return false;
    if (to == DF_MH)
        encode_changes(&encoder, {}, false);
    encoder.finish();
    return true;
}

// Re-codes the data of one page; fp_putdataf writes the result. False if the decoder fails; a failure to
// write is in `conversion`.
//
// Kept: conversion to MH ends with an EOL for putrunlen. Only the MH decoder feeds putrunlen, so its line is
// empty and every page gains a white one; recipients of MH faxes count on the length of a page.
static bool recode_page(const unsigned char *data, size_t length, int from, int to, int vr)
{
    const bool by_bitmaps = t4dec_debug() & T4_DEBUG_BITMAPS;
    return (by_bitmaps ? recode_lines : recode_changing_elements)(data, length, from, to, vr);
}

// Writes a page with its length before it. The length is known
// last, so its place is left out and written afterwards.
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

// The header's "#PAGES" decides how many pages there are: without it there is none, and what follows the last
// page is dropped.
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

// The re-coded fax. It is removed unless it has taken the place of the fax.
struct recoded_file_t {
    unique_fd fd;
    scratch_file file;
};

}  // namespace

// Creates the output. Whatever has its name already may be somebody's fax, so the next free name is taken;
// all end in our tag, by which a crash's left-overs are known.
static bool create_output(recoded_file_t &out, const input_t &in)
{
    const std::string end = std::string(".") + process_tag();
    std::string beside = in.path + end;
    for (int n = 1; !(out.fd = make_new(beside.c_str(), in.mode)); n++) {
        if (errno != EEXIST || n == most_names) {
            fprintf(stderr, "t4dec_change_format: Failure opening %s: %s\n", beside.c_str(), strerror(errno));
            return false;
        }
        beside = std::string(in.path) + "." + std::to_string(n) + end;
    }
    out.file = scratch_file(beside.c_str());
    return true;
}

// Moves the output over the fax: onto the disk first, so that no crash leaves less than the fax was.
static bool move_output(recoded_file_t &out, const input_t &in)
{
    give_permissions(out.fd.get(), out.file.path(), in.mode);
    if (!close_flushed(std::move(out.fd))) {
        fprintf(stderr, "t4dec_change_format: Failure writing %s: %s\n", out.file.path(), strerror(errno));
        return false;
    }
    if (!cv_move(out.file.path(), in.path)) {
        fprintf(stderr, "t4dec_change_format: cv_move(\"%s\",\"%s\") failure.\n", out.file.path(), in.path);
        return false;
    }
    out.file.keep();
    return true;
}

// Opens the file and reads its header. O_NONBLOCK: a pipe,
// which is no fax, must not make us wait for its other end.
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
    in.mode = st.st_mode & 0777;
    return true;
}

// The VR code if it is one that is re-coded, otherwise -1 with a message.
static int accept_resolution(const input_t &in)
{
    const int vr = get_vertical_resolution(in.header.get());
    if (vr < 0) {
        fprintf(stderr, "t4dec_change_format: Could not determine resolution: %s\n", in.path);
        return -1;
    }
    if (vr > 1) {
        // Kept: the code itself is printed as a character, so the log shows a control character.
        fprintf(stderr, "t4dec_change_format: Can't handle type \"%c\" resolution yet.\n", vr);
        return -1;
    }
    return vr;
}

// The steps of a conversion. Returns 1, or 0 with a message.
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

    // Pages are written by offset, which leaves room for lengths that are not known yet.
    t4dec_set_pixel_width(line_width);
    recoded_file_t out;
    if (!create_output(out, in) || set_compression_mode(in.header.get(), to) != 1 ||
        write_fax_header(out.fd.get(), in.header.get()) != 1)
        return 0;
    conversion.fd = out.fd.get();
    conversion.offset = lseek(out.fd.get(), 0, SEEK_CUR);
    return recode_pages(in, from, to, vr, progress) && !putrunlen_failed() && move_output(out, in);
}

int t4dec_change_format(const char *path, int df, int /*ignored*/, void (*progress)())
{
    if (df != DF_MH && df != DF_MR && df != DF_MMR) {
        fprintf(stderr, "t4dec_change_format: Unsupported compression: %d.\n", df);
        return 0;
    }
    input_t in;
    in.path = path;
    // What an earlier page left in the line assembler must not show in this fax.
    conversion = {};
    putrunlen(true, 0, nullptr, nullptr, nullptr);
    putrunlen_failed();
    int result = 0;
    try {
        result = change_format(in, df, progress);
    } catch (const std::bad_alloc &) {  // names of files
        fprintf(stderr, "t4dec_change_format: Memory allocation fail.\n");
    }
    conversion = {};
    return result;
}

}  // namespace faxtray
