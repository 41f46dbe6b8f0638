// t4_decoder: pages of ITU-T T.4 one- and two-dimensional and T.6 coding into bitmap lines. Bits are taken
// from the least significant of each byte on. Damaged lines are concealed, never reported as failures; any
// bytes decode in time linear in their number and that of the lines.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codec/line_assembler.h"

namespace faxtray {

struct t4_callbacks_t {
    t4_run_callback run = nullptr;
    t4_line_callback line = nullptr;
    t4_line_end_callback line_end = nullptr;
};

// By DF code: 0 (MH), 1 (MR), 3 (MMR). 1, or 0 for another code or when the decoder fails.
int t4dec(const unsigned char *data, size_t length, int df, const t4_callbacks_t &callbacks);

int t4dec_MH(const unsigned char *data, size_t length, const t4_callbacks_t &callbacks);  // always 1
int t4dec_MR(const unsigned char *data, size_t length,
             const t4_callbacks_t &callbacks);  // 0: no memory, no data
int t4dec_MMR(const unsigned char *data, size_t length, int width,
              const t4_callbacks_t &callbacks);  // 0: no memory

void t4dec_set_debug(const char *text);  // comma-separated numbers, each a bit of the debug flags

// What the last page decoded was like.
struct t4_page_counts_t {
    long lines;        // passed on
    long repeated;     // of them, damaged ones replaced by the line before
    long ended_short;  // of them, filled up white
};
const t4_page_counts_t &t4dec_counts();

}  // namespace faxtray
