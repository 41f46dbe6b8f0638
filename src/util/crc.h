// crc: CRC-32 in reflected form, one table look-up a byte.
//
// Kept: started from 0 and not inverted at the end, so its values differ from those of the common CRC-32.
// Password hashes in users' records and the inbox handles that clients hold are made with it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace faxtray {

// Fills `table` for crc_rev_update(): the remainders of every byte by the polynomial `poly`, given with its
// lowest coefficient as the highest bit.
constexpr void crc_load_rev_table(uint32_t poly, uint32_t table[256])
{
    for (uint32_t byte = 0; byte < 256; byte++) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; bit++)
            crc = crc & 1 ? (crc >> 1) ^ poly : crc >> 1;
        table[byte] = crc;
    }
}

// The table of the one polynomial that is used here, made by the compiler.
inline constexpr std::array<uint32_t, 256> crc_table = [] {
    std::array<uint32_t, 256> table{};
    crc_load_rev_table(0xEDB88320, table.data());
    return table;
}();

// Continues `crc`, the value of what came before (0 at the beginning), by `n` bytes and returns the new
// value.
uint32_t crc_rev_update(const void *bytes, size_t n, uint32_t crc, const uint32_t table[256]);

// The value of `n` bytes alone, by crc_table.
uint32_t crc_val(const void *bytes, size_t n);

}  // namespace faxtray
