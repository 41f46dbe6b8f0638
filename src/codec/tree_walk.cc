// Follows the bits along the trees and acts on each leaf. No bit is read twice.
#include "codec/tree_walk.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "codec/bit_runs.h"

namespace faxtray {

// Follows the bits and calls `take` with the value of each leaf until it returns true; false if the data end
// first. `take` may set at.node, from which the walk continues.
template <class Take> static bool walk(t4_position_t &at, Take take)
{
    const t4_node_t *node = at.node;
    // Byte by byte: the loop inside is the decoder's hottest, so it does nothing but step.
    for (const size_t end = at.length * 8; at.bit < end;) {
        unsigned bits = at.data[at.bit / 8] >> at.bit % 8;
        do {
            node = node->next[bits & 1];
            bits >>= 1;
            at.bit++;
            if (node->value != T4_INNER) {
                at.node = node;
                if (take(node->value))
                    return true;
                node = at.node;
            }
        } while (at.bit % 8);
    }
    at.node = node;
    return false;
}

// One-dimensional coding

MH_walk::MH_walk(const unsigned char *data, size_t length, const t4_callbacks_t &found)
    : at_{data, length, 0, eoltree}, found_(found)
{
    putrunlen(true, 0, nullptr, nullptr, nullptr);
    t4_page_counts = {};
}

// Kept: a line is passed on at the EOL after it, so the EOL at the start of a
// page makes a white line and the last line of a page that ends without an
// EOL is lost. faxconv warns of it; readers of re-coded faxes know these lines.
bool MH_walk::next_line()
{
    at_line_start_ = walk(at_, [this](int value) {
        putrunlen(false, value, found_.run, found_.line, found_.line_end);
        return value == T4_EOL;
    });
    return at_line_start_;
}

// The line above is putrunlen's: it replaces a damaged line by it.
void MH_walk::resume(size_t bit, const unsigned char *last_line)
{
    at_.bit = bit;
    at_.node = whitetree;
    if (unsigned char *to = putrunlen_last_line())
        memcpy(to, last_line, static_cast<size_t>(Pix_width + 7) / 8);
}

// Two-dimensional coding

MR_MMR_walk::MR_MMR_walk(coding which, const unsigned char *data, size_t length, int width,
                         const t4_callbacks_t &found)
    : coding_(which), width_(std::max(width, 1)), line_size_((static_cast<size_t>(width_) + 7) / 8),
      found_(found), at_{data, length, 0, eoltree},
      lines_(static_cast<unsigned char *>(calloc(2, line_size_))), current_(lines_.get()),
      reference_(current_ ? current_ + line_size_ : nullptr)
{
    t4_page_counts = {};
    if (coding_ == MR) {
        runs_left_ = all_runs;  // the first leaf is eoltree's EOL; take() must not treat it as a mode
        return;
    }
    dec2d_tag_node->value = T4_TAG_2D;  // an EOL is complete without a tag
    at_.node = dec2d_tree;
    at_line_start_ = true;
}

MR_MMR_walk::~MR_MMR_walk()
{
    dec2d_tag_node->value = T4_INNER;
}

// Where the data end within a line, it is passed on filled up
// white. A T.6 page without any line is a white one.
bool MR_MMR_walk::next_line()
{
    at_line_start_ = !ended_ && walk(at_, [this](int value) { return take(value); }) && !ended_;
    if (at_line_start_ || ended_)
        return at_line_start_;
    ended_ = true;
    if (code_read_ || (coding_ == MMR && !passed_any_))
        finish_line();
    return false;
}

void MR_MMR_walk::resume(size_t bit, bool one_dimensional, const unsigned char *last_line)
{
    at_.bit = bit;
    memcpy(reference_, last_line, line_size_);
    passed_any_ = true;
    eols_ = coding_ == MR;  // the one just read
    start_line(one_dimensional);
}

bool MR_MMR_walk::take(int value)
{
    // Among runs an EOL comes from the run trees, which know no tags: in T.4 the next bit is one.
    if (runs_left_ != no_runs) {
        if (value != T4_EOL)
            return take_run(value);
        runs_left_ = no_runs;
        at_.node = dec2d_tag_node;
        return coding_ == MMR && take_EOL(false);
    }
    if (value == T4_TAG_1D || value == T4_TAG_2D)
        return take_EOL(value == T4_TAG_1D);
    return take_mode(value);
}

// In T.4 an EOL ends the line, and six in a row end the page. In T.6 two in a row end the page, and a single
// one means nothing. A line is passed on only if it has a code: six EOLs in a row add no lines.
bool MR_MMR_walk::take_EOL(bool tag_1d)
{
    eols_++;
    if (coding_ == MMR && eols_ < 2) {
        at_.node = dec2d_tree;
        return false;
    }
    if (code_read_ || (coding_ == MMR && !passed_any_))
        finish_line();
    start_line(tag_1d);
    ended_ = eols_ == (coding_ == MMR ? 2 : 6);
    return true;
}

// Make-up codes add up here, any number of them. The line overflows at the code that makes it too long,
// complete run or not.
bool MR_MMR_walk::take_run(int run)
{
    eols_ = 0;
    code_read_ = true;
    makeup_ += abs(run);
    if (makeup_ > width_ - position())
        return conceal_line();
    if (abs(run) >= 64)
        return false;
    complete_run(position() + makeup_);
    if (runs_left_ == all_runs || --runs_left_ > 0)
        return false;
    return code_done();
}

bool MR_MMR_walk::take_mode(int mode)
{
    eols_ = 0;
    code_read_ = true;
    switch (mode) {
    case T4_PASS:
        // To b2. The current run continues past it, so run_start_ stays.
        a0_ = bit_next_trans(reference_, bit_find_b1(reference_, a0_, width_, black_), width_, !black_);
        return code_done();
    case T4_HORIZONTAL:
        runs_left_ = 2;
        at_.node = black_ ? blacktree : whitetree;
        return false;
    case T4_V0:
        return take_vertical(0);
    case T4_VL1:
    case T4_VL2:
    case T4_VL3:
        return take_vertical(T4_V0 - mode);
    case T4_VR1:
    case T4_VR2:
    case T4_VR3:
        return take_vertical(mode - T4_VL3);
    default:  // no leaf of dec2d_tree has another value
        fprintf(coding_ == MMR ? stderr : stdout, "Bad tok: Can't happen!  runlen=%d\n", mode);
        return false;
    }
}

bool MR_MMR_walk::take_vertical(int offset)
{
    const int a1 = bit_find_b1(reference_, a0_, width_, black_) + offset;
    if (a1 < position() || a1 > width_)
        return conceal_line();
    complete_run(a1);
    return code_done();
}

// Called after a mode and its runs. True if they filled the line, which ends it in T.6 only. The last line of
// a page is passed on here too, so that an end-of-facsimile-block or the end of the data after it adds none.
bool MR_MMR_walk::code_done()
{
    at_.node = dec2d_tree;
    if (coding_ == MR || a0_ < width_)
        return false;
    finish_line();
    start_line(false);
    return true;
}

// The current colour ends before pixel `end`.
void MR_MMR_walk::complete_run(int end)
{
    const int length = end - run_start_;
    if (black_)
        bit_flip_bits(current_, run_start_, length);
    if (found_.run)
        found_.run(black_ ? -length : length);
    a0_ = run_start_ = end;
    makeup_ = 0;
    black_ = !black_;
}

void MR_MMR_walk::start_line(bool one_dimensional)
{
    memset(current_, 0, line_size_);
    code_read_ = black_ = false;
    a0_ = -1;
    run_start_ = makeup_ = 0;
    runs_left_ = one_dimensional ? all_runs : no_runs;
    at_.node = one_dimensional ? whitetree : dec2d_tree;
}

// Passes the current line on, white from a0 on, and makes it the reference line.
void MR_MMR_walk::finish_line()
{
    if (code_read_ && a0_ < width_)
        t4_page_counts.ended_short++;
    if (black_ && a0_ > run_start_)  // a pass mode has left a black run without its end
        complete_run(a0_);
    pass_on(current_);
    std::swap(current_, reference_);
}

void MR_MMR_walk::pass_on(const unsigned char *line)
{
    if (run_start_ < width_ && found_.run)
        found_.run(width_ - run_start_);
    t4_page_counts.lines++;
    passed_any_ = true;
    if (found_.line)
        found_.line(line, static_cast<int>(line_size_));
    if (found_.line_end)
        found_.line_end();
}

// Passes the line above on again in place of a damaged one. T.4 continues after the next EOL. T.6 has none
// before the end-of-facsimile-block, which adds no line, so there the page has ended: returns true.
bool MR_MMR_walk::conceal_line()
{
    t4_page_counts.repeated++;
    pass_on(reference_);
    start_line(true);
    at_.node = eoltree;
    ended_ = coding_ == MMR;
    return ended_;
}

// Whole pages

int walk_MH(const unsigned char *data, size_t length, const t4_callbacks_t &found)
{
    MH_walk walk(data, length, found);
    while (walk.next_line())
        ;
    return 1;
}

static int walk_two_dimensional(MR_MMR_walk::coding coding, const unsigned char *data, size_t length,
                                int width, const t4_callbacks_t &found)
{
    MR_MMR_walk walk(coding, data, length, width, found);
    const bool nothing = coding == MR_MMR_walk::MR ? length == 0 : width < 1;
    if (nothing || !walk.has_memory())
        return 0;
    while (walk.next_line())
        ;
    return 1;
}

int walk_MR(const unsigned char *data, size_t length, const t4_callbacks_t &found)
{
    return walk_two_dimensional(MR_MMR_walk::MR, data, length, Pix_width, found);
}

int walk_MMR(const unsigned char *data, size_t length, int width, const t4_callbacks_t &found)
{
    return walk_two_dimensional(MR_MMR_walk::MMR, data, length, width, found);
}

}  // namespace faxtray
