// tree_walk: decodes pages bit by bit along the decoding trees, and defines what decoding means, damage
// included. Any faster decoder must make the same callbacks and counts for any bytes.
//
// A walk stops at the start of each line. There a faster decoder may take over, decode lines by itself, and
// hand back at the start of a later line:
//
//     MR_MMR_walk walk(...);
//     do
//         if (walk.at_line_start()) {
//             decode and pass on clean lines from walk.bit() on;
//             if (there were any)
//                 walk.resume(bit after them, one_dimensional, the last of them);
//         }
//     while (walk.next_line());
//
// A line that turns out not to be clean is left to next_line(), from its start; nothing of it may have been
// passed on or counted.
//
// Where lines start, and which are clean:
//
//   MH   After an EOL. Clean: codes of exactly the width, no two make-up codes in a row, then EOL, with or
//   without
//        fill. Passed on at that EOL, so the last line is lost unless an EOL follows.
//   MR   After an EOL and its tag. Clean: one or more codes, together of exactly the width, then EOL, with or
//        without fill, and a tag. Make-up codes add up.
//   MMR  At the start of the page, and after the code that fills a line, which is passed on at that code.
//   Clean:
//        modes that fill it exactly. The EOLs at the end belong to no line.
//
// Modes: b1 is the first change, right of a0 (at the start of a line also at 0), of the line above to the
// colour other than the current one. Damage is a vertical mode whose a1 is left of a0 or beyond the width,
// and a run that goes beyond the width. Runs of 0 are no damage. A pass mode may reach the width.
#pragma once

#include <cstddef>
#include <memory>

#include "codec/line_assembler.h"
#include "codec/t4_codes.h"
#include "util/owned.h"

namespace faxtray {

// The bits of a page, and how far the walk has come in them and in the trees.
struct t4_position_t {
    const unsigned char *data;
    size_t length;          // bytes
    size_t bit;             // the next one: bit % 8, from the least significant, of byte bit / 8
    const t4_node_t *node;  // where the bits before led
};

// One-dimensional coding. Its runs go to putrunlen, which it resets.
class MH_walk {
public:
    MH_walk(const unsigned char *data, size_t length, const t4_callbacks_t &found);

    // Walks past the next EOL; false if the data ended before.
    bool next_line();

    bool at_line_start() const { return at_line_start_; }
    size_t bit() const { return at_.bit; }

    // Continues at `bit`, after an EOL. `last_line`, the line passed on last, was full and is copied.
    void resume(size_t bit, const unsigned char *last_line);

private:
    t4_position_t at_;
    t4_callbacks_t found_;
    bool at_line_start_ = false;
};

// Two-dimensional coding. While a walk of T.6 exists there may
// be no other, of T.6 or T.4, because it changes dec2d_tree.
class MR_MMR_walk {
public:
    enum coding { MR, MMR };

    MR_MMR_walk(coding which, const unsigned char *data, size_t length, int width,
                const t4_callbacks_t &found);
    ~MR_MMR_walk();
    MR_MMR_walk(const MR_MMR_walk &) = delete;
    MR_MMR_walk &operator=(const MR_MMR_walk &) = delete;

    bool has_memory() const { return lines_ != nullptr; }  // ask before anything else

    // Walks to the start of the next line; false if the page has ended, its last line passed on.
    bool next_line();

    bool at_line_start() const { return at_line_start_; }
    size_t bit() const { return at_.bit; }
    bool one_dimensional() const { return runs_left_ == all_runs; }     // the line that starts here
    const unsigned char *reference_line() const { return reference_; }  // the line above

    // Continues at `bit`, the start of a line, after one or more lines that the caller has passed on.
    // `last_line`, the last of them, is copied; `one_dimensional` is what the tag says of the line that
    // starts here (MR).
    void resume(size_t bit, bool one_dimensional, const unsigned char *last_line);

private:
    static constexpr int no_runs = 0, all_runs = -1;

    // What the leaves mean. Each returns true at the start of a line and at the end of the page.
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
    bool passed_any_ = false;  // a line at least
    int eols_ = 0;             // EOLs without a code between them

    // The line
    bool code_read_ = false;   // it has one code at least
    int a0_ = -1;              // -1 before the first pixel
    int run_start_ = 0;        // where the current colour begins: before a0 after a pass mode
    bool black_ = false;       // the colour
    int makeup_ = 0;           // pixels of make-up codes, until their terminating code comes
    int runs_left_ = no_runs;  // runs until the next mode code; all_runs until the next EOL
};

// Decode whole pages. Parameters and results as of t4dec_MH, t4dec_MR and t4dec_MMR.
int walk_MH(const unsigned char *data, size_t length, const t4_callbacks_t &found);
int walk_MR(const unsigned char *data, size_t length, const t4_callbacks_t &found);
int walk_MMR(const unsigned char *data, size_t length, int width, const t4_callbacks_t &found);

}  // namespace faxtray
