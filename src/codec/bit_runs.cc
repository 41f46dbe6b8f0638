// Works on whole bytes, with a mask at each end of a stretch;
// a search skips eight bytes of one colour at a time.
#include "codec/bit_runs.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace faxtray {

// Calls `change` with each byte that holds pixels of the stretch, and the mask of those pixels.
template <class Change> static void change_bytes(unsigned char *line, int start, int count, Change change)
{
    if (count <= 0)
        return;
    const int end = start + count;
    unsigned char *first = line + start / 8, *last = line + (end - 1) / 8;
    const unsigned head = 0xFFu >> start % 8, tail = 0xFFu << (7 - (end - 1) % 8);  // masks of both ends
    if (first == last) {
        change(*first, head & tail);
        return;
    }
    change(*first, head);
    for (unsigned char *byte = first + 1; byte < last; byte++)
        change(*byte, 0xFFu);
    change(*last, tail);
}

void bit_fill_bits(unsigned char *line, int start, int count, int black)
{
    if (black)
        change_bytes(line, start, count, [](unsigned char &byte, unsigned mask) {
            byte = static_cast<unsigned char>(byte | mask);
        });
}

void bit_flip_bits(unsigned char *line, int start, int count)
{
    change_bytes(line, start, count,
                 [](unsigned char &byte, unsigned mask) { byte = static_cast<unsigned char>(byte ^ mask); });
}

int bit_next_trans(const unsigned char *line, int start, int width, int black)
{
    if (start >= width)
        return width;
    const uint64_t same = black ? ~uint64_t{0} : 0;  // what eight bytes of the colour look like
    const unsigned char *at = line + start / 8, *end = line + (width + 7) / 8;
    unsigned differ = (*at ^ same) & (0xFFu >> start % 8);  // pixels of the other colour in the byte
    if (differ == 0) {
        // By eight bytes as far as they are of one colour, then by single ones.
        at++;
        for (uint64_t bytes; end - at >= 8; at += 8) {
            memcpy(&bytes, at, sizeof bytes);
            if (bytes != same)
                break;
        }
        while (at < end && (differ = (*at ^ same) & 0xFFu) == 0)
            at++;
        if (at == end)
            return width;
    }
    return static_cast<int>(at - line) * 8 + std::countl_zero(static_cast<unsigned char>(differ));
}

// Right of a0 a change to the other colour is the end of a run of `black`. If a0 lies within a run of the
// other colour, that run is skipped first.
int bit_find_b1(const unsigned char *reference, int a0, int width, int black)
{
    const int from = a0 < 0 ? 0 : bit_next_trans(reference, a0, width, !black);
    return bit_next_trans(reference, from, width, black);
}

}  // namespace faxtray
