// Keeps the line under construction and the last complete one, which replaces a damaged line.
#include "codec/line_assembler.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "codec/bit_runs.h"
#include "codec/t4_codes.h"
#include "util/owned.h"

namespace faxtray {

int Pix_width = 1728;
t4_page_counts_t t4_page_counts;

namespace {

struct line_assembler_t {
    int pos = 0;                                        // pixels of the line so far
    bool err = false;                                   // discarding until the next EOL
    int bufsize = 0;                                    // bytes a line
    int cooked_runlen = 0;                              // of a make-up code, until its terminating code comes
    bool last_code_was_makeup = false;                  // such a make-up code is pending
    std::unique_ptr<unsigned char, deleter<free>> buf;  // the line, then the last complete one

    // Starts another line.
    void clear()
    {
        pos = cooked_runlen = 0;
        last_code_was_makeup = false;
        memset(buf.get(), 0, static_cast<size_t>(bufsize));
    }
};

}  // namespace

static line_assembler_t assembler;
static bool failed;  // for putrunlen_failed()

void t4dec_set_pixel_width(int width)
{
    if (width > 0)
        Pix_width = width;
}

// Makes room for two lines of the current width; new room is white. False, with a message, without memory.
static bool make_room()
{
    const int bytes = (Pix_width + 7) / 8;
    if (assembler.bufsize == bytes)
        return true;
    assembler.buf.reset(static_cast<unsigned char *>(calloc(2, static_cast<size_t>(bytes))));
    if (!assembler.buf) {
        fprintf(stderr, "putrunlen: allocation error, %d\n", errno);
        assembler.bufsize = 0;
        failed = true;
        return false;
    }
    assembler.bufsize = bytes;
    assembler.clear();
    return true;
}

bool putrunlen_failed()
{
    return std::exchange(failed, false);
}

unsigned char *putrunlen_last_line()
{
    return make_room() ? assembler.buf.get() + assembler.bufsize : nullptr;
}

// Passes `line` on as the current one and starts another. The run callback hears of the pixels that are
// missing, so that the runs of every line add up to its width.
static void end_line(const unsigned char *line, const t4_callbacks_t &found)
{
    const int missing = Pix_width - assembler.pos;
    if (missing > 0 && found.run)
        found.run(missing);
    t4_page_counts.lines++;
    if (found.line)
        found.line(line, assembler.bufsize);
    if (found.line_end)
        found.line_end();
    assembler.clear();
}

// Only a full line is kept as a replacement: a short one is damaged itself.
static void take_EOL(const t4_callbacks_t &found)
{
    unsigned char *line = assembler.buf.get();
    if (assembler.pos == Pix_width)
        memcpy(line + assembler.bufsize, line, static_cast<size_t>(assembler.bufsize));
    else if (assembler.pos > 0)
        t4_page_counts.ended_short++;
    end_line(line, found);
}

// Passes the last complete line on for the current one. With the line lost, so is the place in the code:
// nothing makes sense before the next EOL.
static void conceal_line(const t4_callbacks_t &found)
{
    t4_page_counts.repeated++;
    end_line(assembler.buf.get() + assembler.bufsize, found);
    assembler.err = true;
}

static void take_terminating_code(int run, const t4_callbacks_t &found)
{
    const int total = assembler.cooked_runlen + run, length = abs(total);
    if (length > Pix_width - assembler.pos) {
        conceal_line(found);
        return;
    }
    bit_fill_bits(assembler.buf.get(), assembler.pos, length, total < 0);
    assembler.pos += length;
    assembler.cooked_runlen = 0;
    assembler.last_code_was_makeup = false;
    if (found.run)
        found.run(total);
}

static void take_makeup_code(int run, const t4_callbacks_t &found)
{
    if (assembler.last_code_was_makeup) {
        conceal_line(found);
        return;
    }
    assembler.cooked_runlen += run;
    assembler.last_code_was_makeup = true;
}

void putrunlen(bool reset, int run, t4_run_callback run_found, t4_line_callback line_found,
               t4_line_end_callback line_ended)
{
    if (reset) {
        assembler = {};
        return;
    }
    if (!make_room())
        return;
    const t4_callbacks_t found = {run_found, line_found, line_ended};
    if (assembler.err)
        assembler.err = run != T4_EOL;
    else if (run == T4_EOL)
        take_EOL(found);
    else if (abs(run) < 64)
        take_terminating_code(run, found);
    else
        take_makeup_code(run, found);
}

}  // namespace faxtray
