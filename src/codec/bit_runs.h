// bit_runs: finds, sets and inverts stretches of pixels in a bitmap line. Pixels are counted from 0 at the
// left, which is the most significant bit of the first byte; 1 is black.
#pragma once

namespace faxtray {

// Sets `count` pixels from `start` if `black`; a white run leaves the line, which was cleared before, as it
// is. A count of 0 or less changes nothing, here and in bit_flip_bits.
void bit_fill_bits(unsigned char *line, int start, int count, int black);

// The first pixel from `start` on whose colour is not `black`; `width` if there is none. Bits after
// the width in the last byte must be white.
int bit_next_trans(const unsigned char *line, int start, int width, int black);

// b1 of ITU-T T.4 section 4.2.1.1: the first pixel right of a0 at which the line above changes to the colour
// other than `black`; `width` if there is none. At the start of a line `a0` is -1, and b1 may be pixel 0.
int bit_find_b1(const unsigned char *reference, int a0, int width, int black);

// Inverts `count` pixels from `start`.
void bit_flip_bits(unsigned char *line, int start, int count);

}  // namespace faxtray
