// tree_walk: decodes pages bit by bit along the decoding trees. This is what the decoders do, damage
// included; anything faster must give the same callbacks and counts for any bytes.
//
// A walk stops at the start of each line, where somebody faster may take over, decode lines by itself, and
// hand back at the start of a later line:
//
//     MR_MMR_walk walk(...);
//     do
//         if (walk.at_line_start()) {
//             decode and pass on clean lines from walk.bit() on;
//             if (there were any)
//                 walk.resume(bit behind them, one_dimensional, the last of them);
//         }
//     while (walk.next_line());
//
// A line that proves not to be clean is left to next_line(), from its start; nothing of it may have been
// passed on or counted.
//
// Where lines start, and which are clean:
//
//   MH   Behind an EOL. Clean: codes of exactly the width, no two make-up codes in a row, then EOL, with or
//        without fill. Passed on at that EOL, so the last line is lost unless one follows.
//   MR   Behind an EOL and its tag. Clean: one or more codes, of exactly the width together, then EOL, with
//        or without fill, and a tag. Make-up codes add up.
//   MMR  At the start of the page, and behind the code that fills a line, which is passed on at that code.
//        Clean: modes that fill it exactly. The EOLs at the end belong to no line.
//
// Modes: b1 is the first change on the line above to the colour other than the current, right of a0, and at
// the start of a line also at 0. A vertical mode whose a1 lies left of a0 or behind the width, and a run that
// goes behind the width, are damage; runs of 0 are not. A pass mode may reach the width.
#pragma once

#include <cstddef>
#include <memory>

#include "codec/line_assembler.h"
#include "codec/t4_codes.h"
#include "util/owned.h"

namespace faxtray {

// Bits of a page and where the walk stands in them and in the trees.
struct t4_position_t {
    const unsigned char *data;
    size_t length;          // bytes
    size_t bit;             // the next one: bit % 8, from the least significant, of byte bit / 8
    const t4_node_t *node;  // reached with the bits before
};

// One-dimensional coding. Works through putrunlen, which it resets.
class MH_walk {
public:
    MH_walk(const unsigned char *data, size_t length, const t4_callbacks_t &found);

    // Walks until an EOL has been dealt with; false when the data ended before.
    bool next_line();

    bool at_line_start() const { return at_line_start_; }
    size_t bit() const { return at_.bit; }

    // Goes on behind the EOL before `bit`; `last_line`, just passed on, was full and is copied.
    void resume(size_t bit, const unsigned char *last_line);

private:
    t4_position_t at_;
    t4_callbacks_t found_;
    bool at_line_start_ = false;
};

// Two-dimensional coding. Of T.6 at most one is under way at a time, and none of T.4 beside it, since it
// changes dec2d_tree.
class MR_MMR_walk {
public:
    enum coding { MR, MMR };

    MR_MMR_walk(coding which, const unsigned char *data, size_t length, int width,
                const t4_callbacks_t &found);
    ~MR_MMR_walk();
    MR_MMR_walk(const MR_MMR_walk &) = delete;
    MR_MMR_walk &operator=(const MR_MMR_walk &) = delete;

    bool has_memory() const { return lines_ != nullptr; }  // ask before anything else

    // Walks until the start of a line is reached; false when the page has ended, its last line passed on.
    bool next_line();

    bool at_line_start() const { return at_line_start_; }
    size_t bit() const { return at_.bit; }
    bool one_dimensional() const { return runs_left_ == all_runs; }     // the line that starts here
    const unsigned char *reference_line() const { return reference_; }  // the line above

    // Goes on at the start of a line, behind at least one line that the caller has passed on. `last_line`,
    // the last of those, is copied; `one_dimensional` is what its tag says of the line that starts here (MR).
    void resume(size_t bit, bool one_dimensional, const unsigned char *last_line);

private:
    static constexpr int no_runs = 0, all_runs = -1;

    bool take(int value);
    bool take_EOL(bool tag_1d);
    bool take_run(int run);
    bool take_mode(int mode);
    bool take_vertical(int offset);
    bool code_done();
    int position() const { return a0_ < 0 ? 0 : a0_; }
    void complete_run(int end);
    void start_line(bool one_dimensional);
    void finish_line();
    void pass_on(const unsigned char *line);
    bool conceal_line();

    const coding coding_;
    const int width_;
    const size_t line_size_;  // bytes
    const t4_callbacks_t found_;
    t4_position_t at_;
    std::unique_ptr<unsigned char, deleter<free>> lines_;
    unsigned char *current_, *reference_;

    // The page
    bool at_line_start_ = false;
    bool ended_ = false;
    bool passed_any_ = false;  // a line, or more
    int eols_ = 0;             // EOLs without a code between them

    // The line
    bool code_read_ = false;
    int a0_ = -1;              // -1 before the first pixel
    int run_start_ = 0;        // where the current colour begins: before a0 behind a pass mode
    bool black_ = false;       // the colour
    int makeup_ = 0;           // make-up codes that await their terminating code
    int runs_left_ = no_runs;  // run codes until the next mode
};

// Whole pages. Parameters and results are those of t4dec_MH, t4dec_MR and t4dec_MMR.
int walk_MH(const unsigned char *data, size_t length, const t4_callbacks_t &found);
int walk_MR(const unsigned char *data, size_t length, const t4_callbacks_t &found);
int walk_MMR(const unsigned char *data, size_t length, int width, const t4_callbacks_t &found);

}  // namespace faxtray
