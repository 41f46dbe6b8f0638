// t4_encoder: bitmap lines into ITU-T T.4 one- and two-dimensional and T.6 coding. A line coder turns lines
// into code words, a packer those into bits.
#pragma once

#include <cstdint>

namespace faxtray {

// Code words between line coder and packer: a run (its length; bit 15 set for black), or one of these.
enum : uint16_t {
    CODE_BLACK = 0x8000,
    CODE_EOL = 32000,
    CODE_PASS = 32001,
    CODE_HORIZONTAL = 32002,
    CODE_V0 = 32003,
    CODE_VL1 = 32004,
    CODE_VL2 = 32005,
    CODE_VL3 = 32006,
    CODE_VR1 = 32007,
    CODE_VR2 = 32008,
    CODE_VR3 = 32009,
    CODE_EOL_1D = 32010,  // EOL and tag 1
    CODE_EOL_2D = 32011,  // EOL and tag 0
};

// Gives the page's next lines and their count; returns bytes a line, at most 3999, or -1 when no lines are
// left, or below on failure. The lines stay the giver's.
using t4_get_lines = int (*)(const unsigned char **lines, int *count);

// Takes `count` words of coded bits, the first bit in the least significant; negative on failure.
using t4_put_words = int (*)(const uint16_t *words, int count);

// Codes a page: `df` 0 (MH), 1 (MR; one line in K is one-dimensional, 4 for VR code 1, else 2) or 3 (MMR). 0,
// or the first negative result of `put_words`, or that of `get_lines` when it failed, or 1 for another code,
// without memory, and for lines that are too long or of changing size. A line of less than 1728 pixels is
// filled up with a white run where it is coded one-dimensionally. After a failure nothing more is packed, but
// the lines are still asked for.
int encode_g3_fax(t4_get_lines get_lines, t4_put_words put_words, int df, int vr);
int enct4_MMR(t4_get_lines get_lines, t4_put_words put_words);

// As encode_g3_fax, which codes lines of 1728 pixels without code words, for any lines: the same bits,
// slower.
int encode_by_words(t4_get_lines get_lines, t4_put_words put_words, int df, int vr);

// Packs code words up to `end` and hands over the full output words; flush() the partly filled one too, its
// high bits 0. A tagged EOL begins on a 16-bit boundary. The two functions above start with an empty packer
// without failure.
void encode(const uint16_t *code_words, const uint16_t *end, t4_put_words put_words);
void flush(const uint16_t *code_words, const uint16_t *end, t4_put_words put_words);

}  // namespace faxtray
