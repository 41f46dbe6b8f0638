// Converts between lists and bitmaps, 64 pixels at a time.
#include "codec/line_changes.h"

#include <array>
#include <bit>
#include <cstring>

namespace faxtray {

static_assert(std::endian::native == std::endian::little);  // words are swapped to read pixels in order

static constexpr int words = changes_width / 64;
static_assert(words * 64 == changes_width);

void find_changes(const unsigned char *bitmap, line_changes_t &line)
{
    int16_t *out = line.at();
    uint64_t before = 0;  // the last pixel, in the most significant place
    for (int i = 0; i < words; i++) {
        uint64_t pixels;
        memcpy(&pixels, bitmap + 8 * i, 8);
        pixels = __builtin_bswap64(pixels);  // the leftmost pixel in the most significant place
        // A set bit for each pixel that differs from the one at its left; each is found and cleared in turn.
        uint64_t changed = pixels ^ (pixels >> 1 | before);
        before = pixels << 63;
        while (changed) {
            int first = std::countl_zero(changed);
            *out++ = static_cast<int16_t>(64 * i + first);
            changed ^= uint64_t{1} << 63 >> first;
        }
    }
    line.end(static_cast<int>(out - line.at()));
}

// [first]: a word with the pixels from `first` on set, in the order of bytes in memory.
static constexpr std::array<uint64_t, 64> rest_of_word = [] {
    std::array<uint64_t, 64> masks{};
    for (unsigned first = 0; first < 64; first++)
        masks[first] = __builtin_bswap64(~uint64_t{0} >> first);
    return masks;
}();

// In pieces, which compilers make of vector stores: of the whole they make a `rep stos`, and that takes
// longer to begin than these take in all.
static void clear_line(unsigned char *bitmap)
{
    constexpr int piece = 64, rest = changes_line_bytes % piece;
    for (int at = 0; at < changes_line_bytes - rest; at += piece)
        memset(bitmap + at, 0, piece);
    memset(bitmap + changes_line_bytes - rest, 0, rest);
}

void draw_changes(const line_changes_t &line, unsigned char *bitmap)
{
    clear_line(bitmap);
    // Each change inverts the rest of its word, which is stored at once: a later change in the same word
    // inverts part of it again. A word begins in the colour that its first change ends.
    const int16_t *at = line.at();
    uint64_t pixels = 0;
    unsigned word = 0;
    for (int i = 0; i < line.count; i += 2) {
        const unsigned black = at[i], white = at[i + 1];
        pixels = black / 64 == word ? pixels : 0;
        word = black / 64;
        pixels ^= rest_of_word[black % 64];
        memcpy(bitmap + 8 * word, &pixels, 8);
        if (word < white / 64) {
            // The black run goes on beyond its word: whole words of it, then a word that begins black.
            while (++word < white / 64)
                memset(bitmap + 8 * word, 0xff, 8);
            pixels = ~uint64_t{0};
        }
        // With an odd number of changes `white` is the width: this lands in the room after the line.
        pixels ^= rest_of_word[white % 64];
        memcpy(bitmap + 8 * word, &pixels, 8);
    }
}

}  // namespace faxtray
