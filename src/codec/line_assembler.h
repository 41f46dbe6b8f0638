// line_assembler: puts the runs of one-dimensionally coded lines together into bitmap lines and conceals
// what is damaged.
//
// A bitmap line is (width + 7) / 8 bytes, the leftmost pixel in the most significant bit of the first; 1 is
// black.
#pragma once

#include <cstdint>

namespace faxtray {

// What decoders call; any may be null. Lines last for the call.
using t4_run_callback = void (*)(int run);  // pixels, negative for black
using t4_line_callback = void (*)(const unsigned char *line, int bytes);
using t4_line_end_callback = void (*)();

extern int Pix_width;  // pixels a line, 1728 unless set
void t4dec_set_pixel_width(int width);

// Takes the next run (a terminating or make-up code, negative for black, or T4_EOL), or, with `reset`, frees
// and forgets everything. A line with too many pixels is replaced by the last complete one, and all is
// ignored up to the next EOL; that EOL ends no line.
void putrunlen(bool reset, int run, t4_run_callback run_found, t4_line_callback line_found,
               t4_line_end_callback line_ended);

}  // namespace faxtray
