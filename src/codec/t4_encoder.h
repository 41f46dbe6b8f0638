// t4_encoder: encodes bitmap lines in ITU-T T.4 (one- and two-dimensional) and T.6. A line coder turns lines
// into code words, a packer turns these into bits.
#pragma once

#include <cstdint>

namespace faxtray {

// What passes from the line coder to the packer: a run (its length, bit 15 set for black) or one of these.
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

// Stores the page's next lines and their count. Returns the bytes in a line, at most 3999; -1 if no lines are
// left; less than -1 on failure. The lines remain the callback's.
using t4_get_lines = int (*)(const unsigned char **lines, int *count);

// Receives `count` words of coded bits, the first bit in the
// least significant. Returns a negative value on failure.
using t4_put_words = int (*)(const uint16_t *words, int count);

// Codes a page as `df` DF_MH, DF_MR (one line in K is one-dimensional: 4 for VR code 1,
// otherwise 2) or DF_MMR. Returns 0; the first negative result of `put_words`; the result of
// `get_lines` if it failed; or 1 for another code, without memory, and for lines that are
// too long or change their size, the last three with a message on standard output. A line of
// less than 1728 pixels is filled up with a white run where it is coded one-dimensionally.
// After a failure of `put_words` it is not called again, but all lines are still asked for.
int encode_g3_fax(t4_get_lines get_lines, t4_put_words put_words, int df, int vr);

// encode_g3_fax for DF_MMR. For the fax system's other programs; none here calls it.
int enct4_MMR(t4_get_lines get_lines, t4_put_words put_words);

// As encode_g3_fax, but always by way of code words; encode_g3_fax has a faster way for lines of 1728 pixels,
// which must produce the same bits. Only tests call it.
int encode_by_words(t4_get_lines get_lines, t4_put_words put_words, int df, int vr);

// Packs the code words up to `end` and hands over the full output words; flush() also the partly filled one,
// its high bits 0. A tagged EOL begins on a 16-bit boundary. The packer's state lasts from call to call; the
// functions above start with an empty packer and no failure.
void encode(const uint16_t *code_words, const uint16_t *end, t4_put_words put_words);
void flush(const uint16_t *code_words, const uint16_t *end, t4_put_words put_words);

}  // namespace faxtray
