// Codes gather in a 64-bit word. After each pair of runs or mode its whole bytes move to the buffer, so that
// it always has room for the next 57 bits and put() needs no test.
#include "codec/fast_encoder.h"

#include <algorithm>
#include <cstring>

#include "codec/fast_tables.h"
#include "codec/t4_codes.h"
#include "faxfile/fax_params.h"

namespace faxtray {

static constexpr int width = changes_width;
static constexpr size_t longest_line =
    width;  // bytes: no pixel takes more than 7 bits, EOL and fill included

fast_encoder_t::fast_encoder_t(int df_, int k_, t4_put_words put_words_)
    : df(df_), k(k_), put_words(put_words_)
{
}

// At most 57 bits in all before the next drain().
inline void fast_encoder_t::put(uint64_t code, unsigned length)
{
    bits |= code << have;
    have += length;
}

// Moves the whole bytes to the buffer and leaves less than 8 bits. Writes 8 bytes whatever there is: the
// buffer has room, and `used` counts only the valid ones.
inline void fast_encoder_t::drain()
{
    memcpy(reinterpret_cast<unsigned char *>(buffer) + used, &bits, sizeof bits);
    used += have >> 3;
    bits >>= have & ~7u;
    have &= 7;
}

// Puts a code that begins at the next 16-bit boundary, after fill.
void fast_encoder_t::put_word_aligned(uint64_t code, unsigned length)
{
    put(0, -(8 * used + have) & 15);
    put(code, length);
    drain();
}

// Empties the buffer but for an odd byte, which waits for the other half of its word.
void fast_encoder_t::hand_over()
{
    size_t words = used / 2;
    if (result >= 0 && words > 0)
        result = std::min(put_words(buffer, static_cast<int>(words)), 0);
    buffer[0] = buffer[words];
    used %= 2;
}

// Codes the line's runs, a white and a black one at a time: their codes,
// of at most 26 bits each, fit into the word together. With an odd number
// of changes the last black run ends at the width, which follows the list.
void fast_encoder_t::one_dimensional()
{
    const fast_tables_t &tables = fast_tables();
    const int16_t *at = current->at();
    int count = current->count, from = 0;
    for (int i = 0; i < count; i += 2) {
        const coded_run_t white = tables.coded[0][at[i] - from], black = tables.coded[1][at[i + 1] - at[i]];
        put(white.bits() | black.bits() << white.length(), white.length() + black.length());
        drain();
        from = at[i + 1];
    }
    if (from < width) {
        const coded_run_t white = tables.coded[0][width - from];
        put(white.bits(), white.length());
        drain();
    }
}

// Codes the line against the one above (ITU-T T.4 section 4.2.1.3). a1 and b1 walk along the two lists: both
// stay at elements that change from the current colour, and the copies of the width after each list are the
// changes at the end of a line.
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
            // After VL the element before the old b1 may lie right of a0 already.
            if (b1[-2] > a0)
                b1 -= 2;
        } else {
            const t4_code_t mode = enc2D[T4_HORIZONTAL];
            const coded_run_t first = tables.coded[colour][*a1 - a0],
                              second = tables.coded[!colour][a1[1] - *a1];
            put(mode.bits | first.bits() << mode.length | second.bits() << (mode.length + first.length()),
                mode.length + first.length() + second.length());
            a0 = a1[1];
            a1 += 2;
        }
        drain();
        while (*b1 <= a0 && a0 < width)  // b1 is right of a0
            b1 += 2;
    }
}

// Codes the line above once more: V0, a single 1, for each of its elements and for its end.
void fast_encoder_t::repeat()
{
    for (int left = current->count + 1; left > 0; left -= 32) {
        int now = left < 32 ? left : 32;
        put((uint64_t{1} << now) - 1, now);
        drain();
    }
}

// Codes the current line with the EOL before it. Room for a line is made here, once, so that nothing below
// needs to look for it.
inline void fast_encoder_t::code_line(bool same)
{
    if (used + longest_line > sizeof buffer)
        hand_over();
    const bool alone = df == DF_MH || (df == DF_MR && coded % k == 0);
    if (df == DF_MR) {
        const t4_code_t &eol = enc2D[alone ? T4_TAG_1D : T4_TAG_2D];
        put_word_aligned(eol.bits, eol.length);
    } else if (df == DF_MH) {
        put(encwhite[EncTabSize - 1].bits, encwhite[EncTabSize - 1].length);
        drain();
    }
    if (alone)
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

// The new list replaces that of the line before the last, which is not needed any more.
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
    for (int i = 0; df == DF_MMR && i < 2; i++)  // the end-of-facsimile-block
        put(encwhite[EncTabSize - 1].bits, encwhite[EncTabSize - 1].length);
    drain();
    put(0, -(8 * used + have) & 15);  // the last word is filled up with 0
    drain();
    hand_over();
    return result;
}

}  // namespace faxtray
