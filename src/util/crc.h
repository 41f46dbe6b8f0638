// crc: CRC-32 in reflected form, polynomial 0xEDB88320, started from 0 and not inverted at the end,
// so its values differ from the common CRC-32. Kept: passwords and inbox handles are made with it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace faxtray {

void crc_load_rev_table(uint32_t poly, uint32_t table[256]);
uint32_t crc_rev_update(const void *bytes, size_t n, uint32_t crc, const uint32_t table[256]);
uint32_t crc_val(const void *bytes, size_t n);

// The hash of `text` up to its end or first line feed, in lower-case hexadecimal without leading
// zeros, in a static buffer. Null, with a message on standard error, for an empty text, one with
// white space, or one of 4096 characters or more.
const char *passwd(const char *text);

}  // namespace faxtray
