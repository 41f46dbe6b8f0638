#include "util/crc.h"

namespace faxtray {

uint32_t crc_rev_update(const void *bytes, size_t n, uint32_t crc, const uint32_t table[256])
{
    const auto *p = static_cast<const unsigned char *>(bytes);
    for (; n > 0; n--, p++)
        crc = (crc >> 8) ^ table[(crc ^ *p) & 0xFF];
    return crc;
}

uint32_t crc_val(const void *bytes, size_t n)
{
    return crc_rev_update(bytes, n, 0, crc_table.data());
}

}  // namespace faxtray
