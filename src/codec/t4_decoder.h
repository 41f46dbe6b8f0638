// t4_decoder: pages of ITU-T T.4 one- and two-dimensional and T.6 coding into bitmap lines. Bits are taken
// from the least significant of each byte on. Damaged lines are concealed, never reported as failures; any
// bytes decode in time linear in their number and that of the lines.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codec/fast_decoder.h"
#include "codec/line_assembler.h"

namespace faxtray {

// By DF code: 0 (MH), 1 (MR), 3 (MMR), in lines of Pix_width. 1, or 0 for another code or when the decoder
// fails.
int t4dec(const unsigned char *data, size_t length, int df, const t4_callbacks_t &callbacks);

int t4dec_MH(const unsigned char *data, size_t length, const t4_callbacks_t &callbacks);  // always 1
int t4dec_MR(const unsigned char *data, size_t length,
             const t4_callbacks_t &callbacks);  // 0: no memory, no data
int t4dec_MMR(const unsigned char *data, size_t length, int width,
              const t4_callbacks_t &callbacks);  // 0: no memory, no width

// The same for lines of 1728 pixels, of which those that are coded without fault are passed on to `found` as
// their changing elements, with `user`, and only the others to the callbacks.
int t4dec_changes(const unsigned char *data, size_t length, int df, changes_callback found, void *user,
                  const t4_callbacks_t &walked);

// Comma-separated numbers, each a bit (modulo 32) to set in the debug flags; what is no number is passed
// over.
void t4dec_set_debug(const char *text);
uint32_t t4dec_debug();                         // the flags so far
enum : uint32_t { T4_DEBUG_BITMAPS = 1 << 0 };  // t4dec_change_format goes by way of bitmaps

const t4_page_counts_t &t4dec_counts();  // of the last page decoded

}  // namespace faxtray
