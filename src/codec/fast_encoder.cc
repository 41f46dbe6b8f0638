// Codes gather in a 64-bit word, which goes to the buffer whenever it may not take the next ones.
#include "codec/fast_encoder.h"

#include <algorithm>
#include <cstring>

#include "codec/fast_tables.h"
#include "codec/t4_codes.h"

namespace faxtray {

static constexpr int width = changes_width;
static constexpr size_t longest_line =
    width;  // bytes, more than any: 7 bits for each pixel, and EOL and fill

fast_encoder_t::fast_encoder_t(int df_, int k_, t4_put_words put_words_)
    : df(df_), k(k_), put_words(put_words_)
{
}

// At most 57 bits before the next drain().
inline void fast_encoder_t::put(uint64_t code, unsigned length)
{
    bits |= code << have;
    have += length;
}

// Leaves less than 8 bits.
inline void fast_encoder_t::drain()
{
    memcpy(reinterpret_cast<unsigned char *>(buffer) + used, &bits, sizeof bits);
    used += have >> 3;
    bits >>= have & ~7u;
    have &= 7;
}

// Begins at the next full word of 16 bits.
void fast_encoder_t::put_word_aligned(uint64_t code, unsigned length)
{
    put(0, -(8 * used + have) & 15);
    put(code, length);
    drain();
}

// Makes room for a line. Keeps an odd byte back, so that the buffer always begins with a word.
void fast_encoder_t::hand_over()
{
    size_t words = used / 2;
    if (result >= 0 && words > 0)
        result = std::min(put_words(buffer, static_cast<int>(words)), 0);
    buffer[0] = buffer[words];
    used %= 2;
}

void fast_encoder_t::one_dimensional()
{
    const fast_tables_t &tables = fast_tables();
    const int16_t *at = current->at();
    int count = current->count, from = 0;
    for (int i = 0; i < count; i += 2) {
        uint64_t white = tables.run_codes[0][at[i] - from], black = tables.run_codes[1][at[i + 1] - at[i]];
        put(white >> 5 | black >> 5 << (white & 31), (white & 31) + (black & 31));
        drain();
        from = at[i + 1];
    }
    if (from < width) {
        uint64_t white = tables.run_codes[0][width - from];
        put(white >> 5, white & 31);
        drain();
    }
}

void fast_encoder_t::two_dimensional()
{
    const fast_tables_t &tables = fast_tables();
    const int16_t *a1 = current->at(), *b1 = above->at();
    int colour = 0;
    for (int a0 = 0; a0 < width;) {
        int offset = *a1 - *b1;
        if (b1[1] < *a1) {
            put(enc2D[T4_PASS].bits, enc2D[T4_PASS].length);
            a0 = b1[1];
            b1 += 2;
        } else if (offset >= -3 && offset <= 3) {
            const t4_code_t &code = tables.vertical[offset + 3];
            put(code.bits, code.length);
            a0 = *a1++;
            b1++;
            colour ^= 1;
            if (b1[-2] > a0)
                b1 -= 2;
        } else {
            uint64_t first = tables.run_codes[colour][*a1 - a0],
                     second = tables.run_codes[!colour][a1[1] - *a1];
            put(enc2D[T4_HORIZONTAL].bits | first >> 5 << 3 | second >> 5 << ((first & 31) + 3),
                (first & 31) + (second & 31) + 3);
            a0 = a1[1];
            a1 += 2;
        }
        drain();
        while (*b1 <= a0 && a0 < width)
            b1 += 2;
    }
}

// The line above again: V0 for each of its elements and for its end.
void fast_encoder_t::repeat()
{
    for (int left = current->count + 1; left > 0; left -= 32) {
        int now = left < 32 ? left : 32;
        put((uint64_t{1} << now) - 1, now);
        drain();
    }
}

inline void fast_encoder_t::code_line(bool same)
{
    if (used + longest_line > sizeof buffer)
        hand_over();
    bool along = df == 0;
    if (df == 1) {
        along = coded % k == 0;
        const t4_code_t &eol = enc2D[along ? T4_TAG_1D : T4_TAG_2D];
        put_word_aligned(eol.bits, eol.length);
    } else if (df == 0) {
        put(encwhite[EncTabSize - 1].bits, encwhite[EncTabSize - 1].length);
        drain();
    }
    if (along)
        one_dimensional();
    else if (same)
        repeat();
    else
        two_dimensional();
    coded++;
}

void fast_encoder_t::line(const line_changes_t &changes, bool same)
{
    if (!same) {
        std::swap(current, above);
        *current = changes;
    }
    code_line(same);
}

void fast_encoder_t::line(const unsigned char *bitmap, bool same)
{
    if (!same) {
        std::swap(current, above);
        find_changes(bitmap, *current);
    }
    code_line(same);
}

int fast_encoder_t::finish()
{
    for (int i = 0; df == 3 && i < 2; i++)
        put(encwhite[EncTabSize - 1].bits, encwhite[EncTabSize - 1].length);
    drain();
    put(0, -(8 * used + have) & 15);
    drain();
    hand_over();
    return result;
}

}  // namespace faxtray
