// t4_decoder: decodes pages of ITU-T T.4 (one- and two-dimensional) and T.6 into bitmap lines. The bits of
// each byte are taken from the least significant on. Damaged lines are concealed, never reported as failures.
// Any bytes decode, in time linear in their number and the number of lines.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codec/fast_decoder.h"
#include "codec/line_assembler.h"

namespace faxtray {

// Decodes a page of `df` DF_MH, DF_MR or DF_MMR into lines of Pix_width pixels. Returns 1, or 0 for another
// code and where the decoder for it returns 0.
int t4dec(const unsigned char *data, size_t length, int df, const t4_callbacks_t &callbacks);

// MH always returns 1; MR returns 0 without memory or for no data, MMR without memory or for a width below 1.
// For the fax system's other programs: ours call t4dec.
int t4dec_MH(const unsigned char *data, size_t length, const t4_callbacks_t &callbacks);
int t4dec_MR(const unsigned char *data, size_t length, const t4_callbacks_t &callbacks);
int t4dec_MMR(const unsigned char *data, size_t length, int width, const t4_callbacks_t &callbacks);

// As t4dec, for lines of 1728 pixels. Lines coded without fault are passed to `found`, with `user`, as their
// changing elements; only the others are passed to the callbacks, as bitmaps.
int t4dec_changes(const unsigned char *data, size_t length, int df, changes_callback found, void *user,
                  const t4_callbacks_t &walked);

// Sets bits of the debug flags: `text` is a comma-separated list of bit
// numbers, taken modulo 32; what is no number is skipped. None of our programs
// calls it; it is there for the fax system's others and for a debugger.
void t4dec_set_debug(const char *text);
uint32_t t4dec_debug();                         // the flags set so far
enum : uint32_t { T4_DEBUG_BITMAPS = 1 << 0 };  // t4dec_change_format decodes to bitmaps and encodes these

const t4_page_counts_t &t4dec_counts();  // of the page decoded last

}  // namespace faxtray
