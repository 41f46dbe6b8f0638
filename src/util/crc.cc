// CRC-32 in reflected form, and the short hash of passwords and directory names made with it.
#include "util/crc.h"

#include <sys/param.h>

#include <cctype>
#include <cstdio>
#include <cstring>

namespace faxtray {

void crc_load_rev_table(uint32_t poly, uint32_t table[256])
{
    for (uint32_t byte = 0; byte < 256; byte++) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; bit++)
            crc = crc & 1 ? (crc >> 1) ^ poly : crc >> 1;
        table[byte] = crc;
    }
}

uint32_t crc_rev_update(const void *bytes, size_t n, uint32_t crc, const uint32_t table[256])
{
    const auto *p = static_cast<const unsigned char *>(bytes);
    for (; n > 0; n--, p++)
        crc = (crc >> 8) ^ table[(crc ^ *p) & 0xFF];
    return crc;
}

uint32_t crc_val(const void *bytes, size_t n)
{
    struct rev_table {
        uint32_t crc[256];
        rev_table() { crc_load_rev_table(0xEDB88320, crc); }
    };
    static const rev_table table;
    return crc_rev_update(bytes, n, 0, table.crc);
}

const char *passwd(const char *text)
{
    size_t n = text ? strcspn(text, "\n") : 0;
    for (size_t i = 0; i < n; i++)
        if (isspace(static_cast<unsigned char>(text[i]))) {
            fprintf(stderr, "Invalid password.  You cannot include spaces.\n");
            return nullptr;
        }
    if (n >= MAXPATHLEN) {
        fprintf(stderr, "Invalid password.  Exceeeds %d characters.\n", MAXPATHLEN);
        return nullptr;
    }
    if (n == 0) {
        fprintf(stderr, "Invalid password.  Password is null.\n");
        return nullptr;
    }
    static char hash[16];
    snprintf(hash, sizeof hash, "%x", crc_val(text, n));
    return hash;
}

}  // namespace faxtray
