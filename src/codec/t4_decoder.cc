// Lets the fast decoder and the walk take turns. The walk knows what to do with any bytes and stops at the
// start of each line; the fast decoder takes as many plain lines as follow and hands the next one back.
#include "codec/t4_decoder.h"

#include <cstdlib>
#include <cstring>

#include "codec/fast_decoder.h"
#include "codec/tree_walk.h"
#include "faxfile/fax_params.h"

namespace faxtray {

static uint32_t Debug;  // the codec's own, unlike the daemon's

// Decodes plain lines from page.bit on. True if there were any; `last_line` (changes_bitmap_size bytes) is
// then the last of them, which the walk needs as its line above.
static bool go_on_fast(fast_page_t &page, unsigned char *last_line)
{
    const long lines = fast_lines(page);
    t4_page_counts.lines += lines;
    if (lines > 0)
        draw_changes(page.line, last_line);
    return lines > 0;
}

// If no line was taken fast, the walk continues where it is.
static int decode_MH(fast_page_t &page, const t4_callbacks_t &callbacks)
{
    unsigned char last_line[changes_bitmap_size];
    MH_walk walk(page.data, page.length, callbacks);
    while (walk.next_line()) {
        page.bit = walk.bit();
        if (go_on_fast(page, last_line))
            walk.resume(page.bit, last_line);
    }
    return 1;
}

static int decode_two_dimensional(fast_page_t &page, const t4_callbacks_t &callbacks)
{
    unsigned char last_line[changes_bitmap_size];
    MR_MMR_walk walk(page.df == DF_MR ? MR_MMR_walk::MR : MR_MMR_walk::MMR, page.data, page.length,
                     changes_width, callbacks);
    if (!walk.has_memory())
        return 0;
    // A T.6 page starts with a line, so the fast decoder comes first; a T.4 page starts with an EOL.
    do {
        if (!walk.at_line_start())
            continue;
        page.bit = walk.bit();
        page.one_dimensional = walk.one_dimensional();
        find_changes(walk.reference_line(), page.line);
        if (go_on_fast(page, last_line))
            walk.resume(page.bit, page.one_dimensional, last_line);
    } while (walk.next_line());
    return 1;
}

int t4dec_changes(const unsigned char *data, size_t length, int df, changes_callback found, void *user,
                  const t4_callbacks_t &walked)
{
    t4_page_counts = {};
    fast_page_t page = {data, length, df, 0, true, {}, found, user};
    switch (df) {
    case DF_MH:
        return decode_MH(page, walked);
    case DF_MR:
        return length > 0 && decode_two_dimensional(page, walked);
    case DF_MMR:
        return decode_two_dimensional(page, walked);
    default:
        return 0;
    }
}

namespace {

// Draws lines that were read fast for callbacks that take bitmaps.
struct drawn_lines_t {
    const t4_callbacks_t &callbacks;
    unsigned char bitmap[changes_bitmap_size];
};

}  // namespace

static void draw_and_pass_on(void *user, const line_changes_t &line, bool same)
{
    drawn_lines_t *drawn = static_cast<drawn_lines_t *>(user);
    if (!same)
        draw_changes(line, drawn->bitmap);
    if (drawn->callbacks.line)
        drawn->callbacks.line(drawn->bitmap, changes_line_bytes);
    if (drawn->callbacks.line_end)
        drawn->callbacks.line_end();
}

// A whole page by the walk alone.
static int walk(const unsigned char *data, size_t length, int df, int width, const t4_callbacks_t &callbacks)
{
    switch (df) {
    case DF_MH:
        return walk_MH(data, length, callbacks);
    case DF_MR:
        return walk_MR(data, length, callbacks);
    case DF_MMR:
        return walk_MMR(data, length, width, callbacks);
    default:
        return 0;
    }
}

// Only the walk reports runs as they are coded and decodes lines of other widths.
static int decode(const unsigned char *data, size_t length, int df, int width,
                  const t4_callbacks_t &callbacks)
{
    if (width != changes_width || callbacks.run)  // the fast decoder has neither
        return walk(data, length, df, width, callbacks);
    drawn_lines_t drawn = {callbacks, {}};
    return t4dec_changes(data, length, df, draw_and_pass_on, &drawn, callbacks);
}

int t4dec_MH(const unsigned char *data, size_t length, const t4_callbacks_t &callbacks)
{
    return decode(data, length, DF_MH, Pix_width, callbacks);
}

int t4dec_MR(const unsigned char *data, size_t length, const t4_callbacks_t &callbacks)
{
    return decode(data, length, DF_MR, Pix_width, callbacks);
}

int t4dec_MMR(const unsigned char *data, size_t length, int width, const t4_callbacks_t &callbacks)
{
    return decode(data, length, DF_MMR, width, callbacks);
}

int t4dec(const unsigned char *data, size_t length, int df, const t4_callbacks_t &callbacks)
{
    return decode(data, length, df, Pix_width, callbacks);
}

void t4dec_set_debug(const char *text)
{
    while (text && *text) {
        // `end` is `text` if there is no number: nothing is set, and what is there is skipped to the comma.
        char *end;
        const long number = strtol(text, &end, 10);
        if (end != text)
            Debug |= uint32_t{1} << (static_cast<unsigned long>(number) % 32);
        text = strchr(end, ',');
        text = text ? text + 1 : nullptr;
    }
}

uint32_t t4dec_debug()
{
    return Debug;
}

const t4_page_counts_t &t4dec_counts()
{
    return t4_page_counts;
}

}  // namespace faxtray
