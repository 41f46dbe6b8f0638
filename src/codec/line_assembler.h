// line_assembler: assembles the runs of one-dimensionally
// coded lines into bitmap lines, and conceals damaged ones.
//
// A bitmap line is (width + 7) / 8 bytes, the leftmost pixel
// in the most significant bit of the first; 1 is black.
#pragma once

#include <cstdint>

namespace faxtray {

// What decoders call; any may be null. A line is valid during the call only.
using t4_run_callback = void (*)(int run);  // pixels, negative for black
using t4_line_callback = void (*)(const unsigned char *line, int bytes);
using t4_line_end_callback = void (*)();

struct t4_callbacks_t {
    t4_run_callback run = nullptr;
    t4_line_callback line = nullptr;
    t4_line_end_callback line_end = nullptr;
};

extern int Pix_width;                   // pixels a line, 1728 unless set
void t4dec_set_pixel_width(int width);  // ignores a width below 1

// Adds the next run (a terminating or make-up code, negative for black, or T4_EOL), or, with `reset`, frees
// its buffer and starts over. An EOL ends the line; a line with too few pixels is filled up white. As soon as
// a line has too many, or two make-up codes in a row, the last complete line is passed on in its place, and
// everything up to and including the next EOL is ignored. Without memory for two lines, prints a message and
// does nothing else.
void putrunlen(bool reset, int run, t4_run_callback run_found, t4_line_callback line_found,
               t4_line_end_callback line_ended);

// The line that would replace a damaged one: white at first, then the last that was full at its EOL. A
// decoder that has assembled lines without putrunlen stores the last of them here before it calls putrunlen
// again. Null, with a message, without memory. The buffer stays putrunlen's own.
unsigned char *putrunlen_last_line();

// Whether memory has been missing since the last call: lines have then been lost.
bool putrunlen_failed();

// How a page was decoded. Code that passes a line on counts it here; decoders start every page at 0.
struct t4_page_counts_t {
    long lines;        // passed on
    long repeated;     // of these, damaged ones that were replaced by the line before
    long ended_short;  // of these, not empty but with too few pixels: filled up white

    bool operator==(const t4_page_counts_t &) const = default;
};
extern t4_page_counts_t t4_page_counts;

}  // namespace faxtray
