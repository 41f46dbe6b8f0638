// Reads several codes with one look-up where the tables have them, and one code at a time elsewhere. A line
// reader that meets anything it would have to judge gives its line up; the walk then reads it from its start.
//
// Speed comes from three habits: bits are taken 56 or more at a time into one word; blocks of elements are
// written whole and only counted as far as they are right, so that few branches depend on the data; and
// validity is tested once a block, not once a code.
#include "codec/fast_decoder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "codec/fast_tables.h"
#include "codec/t4_codes.h"
#include "faxfile/fax_params.h"

namespace faxtray {

static constexpr int width = changes_width;

namespace {

// Eight elements of a list.
using block_t = int16_t __attribute__((vector_size(16)));
using offsets_t = int8_t __attribute__((vector_size(8)));

// The next bits of a page, the first in the lowest place.
struct bit_source_t {
    const unsigned char *next;
    uint64_t bits = 0;
    unsigned have = 0;  // bits that are valid; those above are not 0 but the bytes at `next`

    // Makes at least 56 bits valid, without a branch. Reads 8 bytes at `next` and moves on by as many as fit
    // whole; the rest is read, to the same place, by the next fill.
    void fill()
    {
        uint64_t more;
        memcpy(&more, next, sizeof more);
        bits |= more << have;
        next += (63 - have) >> 3;
        have |= 56;
    }

    unsigned peek(int count) const { return static_cast<unsigned>(bits) & ((1u << count) - 1); }

    void skip(unsigned count)
    {
        bits >>= count;
        have -= count;
    }
};

// How far a two-dimensional line has been decoded.
struct line_state_t {
    int n = 0;    // elements of the line; odd while the colour is black
    int a0 = -1;  // pixel; -1 before the first
    int i = 0;    // b1 is element i of the line above
};

}  // namespace

static block_t load_block(const int16_t *from)
{
    block_t block;
    memcpy(&block, from, sizeof block);
    return block;
}

// The first element for which a comparison does not hold; 8 when it holds for all.
static int first_false(block_t comparison)
{
    offsets_t bytes = __builtin_convertvector(comparison, offsets_t);
    uint64_t all;
    memcpy(&all, &bytes, sizeof all);
    return std::countr_one(all) / 8;
}

// b1: the first element right of a0 among element `i` and every second one after it, which are those that
// change to the same colour.
static int right_of(const int16_t *elements, int i, int a0)
{
    for (;; i += 8)
        if (int left = first_false(load_block(elements + i) <= static_cast<int16_t>(a0)); left < 8)
            return i + ((left + 1) & ~1);
}

namespace {

// Reads one line after another. Its functions return false if the line is not for the fast path; the reader's
// position within that line is then undefined.
class line_reader_t {
public:
    explicit line_reader_t(const fast_page_t &page)
        : tables(fast_tables()), start(page.data), end(page.data + page.length), source{start + page.bit / 8}
    {
        fill();
        source.skip(page.bit % 8);
    }

    bool one_dimensional(line_changes_t &line);
    bool two_dimensional(line_changes_t &line, const line_changes_t &above);
    int repeats(const line_changes_t &above, int most);
    bool eol(bool *tag);  // with any fill before it; unless `tag` is null, also reads whether the tag is 1

    // Where the next code begins.
    size_t bit() const { return (before_start + static_cast<size_t>(source.next - start)) * 8 - source.have; }

private:
    // Makes at least 56 bits valid, zeros after the end of the data. False if they would begin far beyond it.
    bool fill()
    {
        if (end - source.next < 8 && !extend())
            return false;
        source.fill();
        return true;
    }

    bool extend();

    int run(int colour);
    bool mode(line_state_t &state, int16_t *out, const int16_t *above);
    bool modes(line_state_t &state, int16_t *out, const line_changes_t &above);
    bool horizontal(line_state_t &state, int16_t *out, const int16_t *above);

    const fast_tables_t &tables;
    const coded_run_t white_line = tables.coded[0][width];
    const unsigned char *start, *end;  // of the data; after extend(), of `tail`
    size_t before_start = 0;           // bytes of the data before `start`
    unsigned char tail[32] = {};       // the last bytes of the data, and zeros
    bit_source_t source;
};

// Goes on in a copy of the last bytes with zeros after them, so that fill() may read 8 bytes at a time to the
// end. False when it did so before: the zeros are used up.
bool line_reader_t::extend()
{
    if (start == tail)
        return false;
    std::copy(source.next, end, tail);
    before_start = static_cast<size_t>(source.next - start);
    source.next = start = tail;
    end = tail + sizeof tail;
    return true;
}

// One run of any length, code by code; -1 if the next bits are none.
int line_reader_t::run(int colour)
{
    if (!fill())
        return -1;
    int sum = 0;
    for (int codes = 0; codes < 2; codes++) {
        const run_code_t code = tables.one[colour][source.peek(fast_tables_t::one_bits)];
        source.skip(code.length());
        sum += code.run();
        if (!code.is_make_up())
            return sum;
    }
    return -1;  // two make-up codes, or no code
}

// A line of runs, which must fill it exactly. Up to three runs are taken at once where the table has them;
// only long runs, runs of 0 and what is no run are left to run().
bool line_reader_t::one_dimensional(line_changes_t &line)
{
    // Most lines of most pages are white. The code for it has a
    // make-up code, which the table below is too narrow for.
    if (fill() && source.peek(static_cast<int>(white_line.length())) == white_line.bits()) {
        source.skip(white_line.length());
        line.end(0);
        return true;
    }
    int16_t *out = line.at();
    int pos = 0, colour = 0;
    // A copy, which the compiler keeps in registers: `source`, a member, might alias what `out` points to.
    bit_source_t in = source;
    for (;;) {
        if (end - in.next < 8) {
            source = in;
            if (!extend())
                return false;
            in = source;
        }
        in.fill();
        // The 56 bits are enough for four look-ups of 11 bits, or for fewer before a long run, which fills
        // again by itself; after it the loop starts over.
        for (int block = 0; block < 4; block++) {
            const runs_t runs = tables.runs[colour][in.peek(fast_tables_t::runs_bits)];
            if (runs.count() == 0) {
                source = in;
                const int length = run(colour);
                in = source;
                // A run of 0 is plain only at the start: it makes a line begin black.
                if (length < 0 || (length == 0 && out != line.at()))
                    return false;
                pos += length;
                *out++ = static_cast<int16_t>(pos);
                colour ^= 1;
                block = 4;
            } else {
                runs.store_ends(pos, out);
                out += runs.count();
                in.skip(runs.length());
                pos += runs.pixels();
                colour ^= runs.changes_colour();
            }
            if (pos >= width) {
                source = in;
                line.end(static_cast<int>(out - line.at()) - 1);  // the last end is the width
                return pos == width;
            }
        }
    }
}

// Fill may be long, so zeros are counted by words. Stops at 54 a round: of 56 valid bits, one more may be the
// EOL's 1 and one its tag.
bool line_reader_t::eol(bool *tag)
{
    int zeros = 0, more;
    do {
        if (!fill())
            return false;
        more = std::min(std::countr_zero(source.bits), 54);
        source.skip(more);
        zeros += more;
    } while (more == 54);
    if (zeros < 11)
        return false;
    source.skip(1);
    if (tag) {
        *tag = source.peek(1);
        source.skip(1);
    }
    return true;
}

// The two runs after a horizontal mode's code: a1 and a2. Refused are those that would not leave a strictly
// ascending list, but for a line that ends with a run of 0, which makes no element.
bool line_reader_t::horizontal(line_state_t &state, int16_t *out, const int16_t *above)
{
    const int from = state.a0 < 0 ? 0 : state.a0, colour = state.n & 1;
    const runs_t runs = tables.runs[colour][source.peek(fast_tables_t::runs_bits)];
    int a1, a2;
    if (runs.count() >= 2) {
        a1 = from + runs.end(0);
        a2 = from + runs.end(1);
        source.skip(runs.length_of_two());
    } else {
        const int first = run(colour), second = run(!colour);
        a1 = from + first;
        a2 = a1 + second;
        // At the start of a line a0 is -1, not `from`, so that a first
        // run of 0 passes: the line begins black.
        if (first < 0 || second < 0 || a1 == state.a0 || (a2 == a1 && a2 != width))
            return false;
    }
    if (a2 > width)
        return false;
    out[state.n] = static_cast<int16_t>(a1);
    out[state.n + 1] = static_cast<int16_t>(a2);
    state.n += 2;
    state.a0 = a2;
    if (a2 < width)
        state.i = right_of(above, state.i, a2);
    return true;
}

// One mode, with its runs when it is horizontal. Pass and vertical share their code, without a branch between
// them: on noisy pages it would be guessed wrong half of the time.
bool line_reader_t::mode(line_state_t &state, int16_t *out, const int16_t *above)
{
    const modes_t &modes = tables.modes[source.peek(fast_tables_t::modes_bits)];
    source.skip(modes.length_of(1));
    const bool pass = modes.vertical() == 0;
    if (pass && modes.last() != T4_PASS)
        return modes.last() == T4_HORIZONTAL && horizontal(state, out, above);
    // To a1, or past b2. A pass mode that reaches the width is legal but not plain.
    const int to = above[state.i + pass] + modes.offsets()[0];
    if (to <= state.a0 || to > width - pass)
        return false;
    out[state.n] = static_cast<int16_t>(to);  // counted if vertical
    state.n += !pass;
    state.a0 = to;
    if (to == width)
        return true;
    // After a vertical mode b1 is mostly the next element, else two before or after that; after a pass mode
    // it is two on. Further on only in a dense line.
    state.i += 1 + pass;
    state.i += 2 * (above[state.i] <= to) - 2 * (above[state.i - 2] > to);
    while (above[state.i] <= to)
        state.i += 2;
    return true;
}

// Up to seven vertical modes at once and the mode that follows them; one mode where that cannot be.
//
// In a block, the k-th a1 is taken to be the k-th element above plus its offset, that is, each b1 to be the
// element after the one before. This holds as long as each a1 is right of the one before it, not left of the
// element before its b1 (else b1 would be that element's neighbour) and left of the element after it.
bool line_reader_t::modes(line_state_t &state, int16_t *out, const line_changes_t &above)
{
    const modes_t &modes = tables.modes[source.peek(fast_tables_t::modes_bits)];
    const int16_t *b1 = above.at() + state.i;
    offsets_t offsets;
    memcpy(&offsets, modes.offsets(), sizeof offsets);
    block_t a1 = load_block(b1) + __builtin_convertvector(offsets, block_t);
    memcpy(out + state.n, &a1, sizeof a1);
    block_t before = __builtin_shufflevector(a1, a1, 0, 0, 1, 2, 3, 4, 5, 6);
    before[0] = static_cast<int16_t>(state.a0);
    int good = first_false((a1 < load_block(b1 + 1)) & (a1 > before) & (a1 >= load_block(b1 - 1)));
    const int left = above.count - state.i;  // elements above that are no copies of the width

    // All the vertical modes are right: go on to the mode that follows them.
    if (modes.vertical() <= good && modes.vertical() <= left) {
        source.skip(modes.length());
        state.n += modes.vertical();
        state.i += modes.vertical();
        state.a0 = modes.vertical() ? out[state.n - 1] : state.a0;
        if (modes.last() == T4_HORIZONTAL)
            return horizontal(state, out, above.at());
        if (modes.last() == T4_PASS) {
            state.a0 = above.at()[state.i + 1];
            state.i += 2;
        }
        return modes.length() > 0 && state.a0 < width;
    }

    // Some of them are: take those, and the next, which ends the line or whose b1 is elsewhere, by itself.
    good = std::min(good, std::max(left, 0));
    if (good > 0) {
        source.skip(modes.length_of(good));
        state.n += good;
        state.i += good;
        state.a0 = out[state.n - 1];
    }
    return mode(state, out, above.at());
}

// A line of modes, until a0 is the width.
bool line_reader_t::two_dimensional(line_changes_t &line, const line_changes_t &above)
{
    int16_t *out = line.at();
    line_state_t state;
    const bool dense = above.count > width / 4;  // so dense that few modes of a block would be right
    while (state.a0 < width)
        if (!fill() || !(dense ? mode(state, out, above.at()) : modes(state, out, above)))
            return false;
    while (state.n > 0 && out[state.n - 1] == width)  // the end of the line is no element
        state.n--;
    line.end(state.n);
    return true;
}

// How often, up to `most` times, the line above is repeated: V0, a single 1, for each of its elements and for
// its end. Lines of more than 55 elements are not looked at: they would not lie whole in the word.
int line_reader_t::repeats(const line_changes_t &above, int most)
{
    const unsigned length = static_cast<unsigned>(above.count) + 1;
    if (length > 56 || (length > source.have && !fill()))
        return 0;
    const unsigned V0s = std::min(static_cast<unsigned>(std::countr_one(source.bits)), source.have);
    int times = 0;
    while (times < most && (times + 1) * length <= V0s)
        times++;
    source.skip(times * length);
    return times;
}

}  // namespace

long fast_lines(fast_page_t &page)
{
    line_reader_t reader(page);
    line_changes_t *line = &page.room, *above = &page.line;
    const bool has_eols = page.df != DF_MMR, has_tags = page.df == DF_MR;
    bool one_dimensional = page.df == DF_MH || (page.df == DF_MR && page.one_dimensional);
    long lines = 0;
    for (;;) {
        // One repetition at a time where an EOL must come between them.
        int times = one_dimensional ? 0 : reader.repeats(*above, has_eols ? 1 : 56);
        if (times == 0 &&
            !(one_dimensional ? reader.one_dimensional(*line) : reader.two_dimensional(*line, *above)))
            break;
        const bool same = times > 0 || (one_dimensional && line->count == 0 && above->count == 0);

        // Beyond the data the reader makes up zeros. A line that needs them is incomplete.
        if ((has_eols && !reader.eol(has_tags ? &one_dimensional : nullptr)) ||
            reader.bit() > 8 * page.length)
            break;

        // The line is plain. Swapping makes it the line above: a copy would cost more than reading it did.
        page.bit = reader.bit();
        page.one_dimensional = one_dimensional;
        if (!same)
            std::swap(line, above);
        for (times = std::max(times, 1); times > 0; times--, lines++)
            page.found(page.user, *above, same && lines > 0);
    }
    if (above != &page.line)
        page.line = *above;
    return lines;
}

}  // namespace faxtray
