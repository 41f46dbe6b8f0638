// fast_encoder: codes lines of 1728 pixels from their changing elements, a pair of runs or a mode at a time.
// It produces the same bits as encode_by_words.
#pragma once

#include <cstddef>
#include <utility>

#include "codec/line_changes.h"
#include "codec/t4_encoder.h"

namespace faxtray {

// Codes one page.
class fast_encoder_t {
public:
    // `df`: DF_MH, DF_MR (one line in `k` is one-dimensional) or DF_MMR.
    fast_encoder_t(int df, int k, t4_put_words put_words);

    // Codes the next line, given as a list or as a bitmap; `same` if it is the line coded before it, which is
    // then not looked at again.
    void line(const line_changes_t &changes, bool same);
    void line(const unsigned char *bitmap, bool same);

    long lines() const { return coded; }

    // Ends the page and hands over its last words. Returns 0, or the first negative result of `put_words`,
    // after which nothing more was handed over.
    int finish();

private:
    void put(uint64_t bits, unsigned length);
    void drain();
    void put_word_aligned(uint64_t bits, unsigned length);
    void hand_over();
    void code_line(bool same);
    void one_dimensional();
    void two_dimensional();
    void repeat();

    const int df, k;
    const t4_put_words put_words;
    int result = 0;
    long coded = 0;  // lines
    line_changes_t lists[2];
    line_changes_t *current = &lists[0], *above = &lists[1];  // the line coded last, the one before it

    uint64_t bits = 0;  // coded, but not yet in the buffer; the first in the lowest place
    unsigned have = 0;  // how many of them
    size_t used = 0;    // bytes of the buffer
    uint16_t buffer[8192];
};

}  // namespace faxtray
