// Chooses the decoder of a page.
#include "codec/t4_decoder.h"

#include <cstdlib>
#include <cstring>

#include "codec/tree_walk.h"

namespace faxtray {

static uint32_t Debug;  // the codec's own, unlike the daemon's

int t4dec_MH(const unsigned char *data, size_t length, const t4_callbacks_t &callbacks)
{
    return walk_MH(data, length, callbacks);
}

int t4dec_MR(const unsigned char *data, size_t length, const t4_callbacks_t &callbacks)
{
    return walk_MR(data, length, callbacks);
}

int t4dec_MMR(const unsigned char *data, size_t length, int width, const t4_callbacks_t &callbacks)
{
    return walk_MMR(data, length, width, callbacks);
}

int t4dec(const unsigned char *data, size_t length, int df, const t4_callbacks_t &callbacks)
{
    switch (df) {
    case 0:
        return t4dec_MH(data, length, callbacks);
    case 1:
        return t4dec_MR(data, length, callbacks);
    case 3:
        return t4dec_MMR(data, length, Pix_width, callbacks);
    default:
        return 0;
    }
}

void t4dec_set_debug(const char *text)
{
    while (text && *text) {
        char *end;
        const long number = strtol(text, &end, 10);
        if (end != text)
            Debug |= uint32_t{1} << (static_cast<unsigned long>(number) % 32);
        text = strchr(end, ',');
        text = text ? text + 1 : nullptr;
    }
}

uint32_t t4dec_debug()
{
    return Debug;
}

const t4_page_counts_t &t4dec_counts()
{
    return t4_page_counts;
}

}  // namespace faxtray
