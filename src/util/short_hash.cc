#include "util/short_hash.h"

#include <sys/param.h>

#include <cctype>
#include <cstdio>
#include <cstring>

#include "util/crc.h"

namespace faxtray {

const char *passwd(const char *text)
{
    // A line feed ends the text, so that a line can be passed as it was read. White space in it is
    // reported before its length: a pass phrase is the likelier mistake.
    size_t n = text ? strcspn(text, "\n") : 0;
    for (size_t i = 0; i < n; i++)
        if (isspace(static_cast<unsigned char>(text[i]))) {
            fprintf(stderr, "Invalid password.  You cannot include spaces.\n");
            return nullptr;
        }
    if (n >= MAXPATHLEN) {
        // Kept: the spelling, for those who search their logs for it.
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
