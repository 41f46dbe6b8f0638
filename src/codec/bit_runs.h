// bit_runs: stretches of one colour in a bitmap line. Pixels are counted from 0 at the left, the most
// significant bit of the first byte; 1 is black.
#pragma once

namespace faxtray {

// Sets `count` pixels from `start`; when `black` is 0 the (cleared) line is left as it is. A count of 0 or
// less changes nothing, here and below.
void bit_fill_bits(unsigned char *line, int start, int count, int black);

// The first pixel at or behind `start` that differs in colour from `black`; `width` when there is none.
int bit_next_trans(const unsigned char *line, int start, int width, int black);

// b1 of ITU-T T.4 section 4.2.1.1: the first pixel of the line above, right of a0, at which it changes to the
// colour other than `black`. `a0` is -1 at the start of a line, where that may be pixel 0. `width` if none.
int bit_find_b1(const unsigned char *reference, int a0, int width, int black);

// Inverts `count` pixels from `start`.
void bit_flip_bits(unsigned char *line, int start, int count);

}  // namespace faxtray
