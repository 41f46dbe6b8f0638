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

struct t4_callbacks_t {
    t4_run_callback run = nullptr;
    t4_line_callback line = nullptr;
    t4_line_end_callback line_end = nullptr;
};

extern int Pix_width;                   // pixels a line, 1728 unless set
void t4dec_set_pixel_width(int width);  // a width below 1 is ignored

// Takes the next run (a terminating or make-up code, negative for black, or T4_EOL), or, with `reset`, frees
// and forgets everything. An EOL ends the line; one with too few pixels is filled up white. A line with too
// many, or with two make-up codes in a row, is replaced by the last complete one at once, and all is ignored
// up to the next EOL; that EOL ends no line. Without memory for two lines a message is printed and nothing
// done.
void putrunlen(bool reset, int run, t4_run_callback run_found, t4_line_callback line_found,
               t4_line_end_callback line_ended);

// The line that would replace a damaged one: white at first, then the last that was full at its EOL. A
// decoder that assembled lines by itself stores the last of them here before it goes on with putrunlen. Null
// without memory (printed).
unsigned char *putrunlen_last_line();

// What a page is like. Whoever passes a line on counts it here; decoders set it to 0 at the start of a page.
struct t4_page_counts_t {
    long lines;        // passed on
    long repeated;     // of them, damaged ones replaced by the line before
    long ended_short;  // of them, with something in them, but too few pixels: filled up white
};
extern t4_page_counts_t t4_page_counts;

}  // namespace faxtray
