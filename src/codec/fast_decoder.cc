// Reads blocks of codes with one look-up, where the tables have them, and code by code elsewhere. Whatever
// might need judgement makes a line reader give up its line.
#include "codec/fast_decoder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "codec/fast_tables.h"
#include "codec/t4_codes.h"

namespace faxtray {

static constexpr int width = changes_width;

namespace {

// Eight elements of a list.
using block_t = int16_t __attribute__((vector_size(16)));
using offsets_t = int8_t __attribute__((vector_size(8)));

// The next bits of a page, the first in the least significant place.
struct bit_source_t {
    const unsigned char *next;
    uint64_t bits = 0;
    unsigned have = 0;

    // From here on at least 56 bits are there. Reads 8 bytes, without a branch.
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

// Where a two-dimensional line stands: behind element n - 1 of its own, at pixel a0 (-1: before the first),
// with b1 element i of the line above.
struct line_state_t {
    int n = 0, a0 = -1, i = 0;
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

// The first element at or an even number of elements behind `i` that lies right of a0.
static int right_of(const int16_t *elements, int i, int a0)
{
    for (;; i += 8)
        if (int left = first_false(load_block(elements + i) <= static_cast<int16_t>(a0)); left < 8)
            return i + ((left + 1) & ~1);
}

namespace {

// Reads one line after the other. What it returns is false when the line is not for the fast path; the reader
// then stands anywhere within it.
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
    bool eol(bool *tag);  // with fill before it and, unless null, a tag behind it: whether it is 1

    // Where the next code begins.
    size_t bit() const { return (before_start + static_cast<size_t>(source.next - start)) * 8 - source.have; }

private:
    // From here on at least 56 bits are there, zeros behind the end. False when the end lies too far back.
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
    const unsigned white_bits = tables.run_codes[0][width] >> 5;  // a white line
    const int white_length = tables.run_codes[0][width] & 31;
    const unsigned char *start, *end;  // of the data, then of `tail`
    size_t before_start = 0;           // bytes of the data that lie before
    unsigned char tail[32] = {};       // the last bytes of the data, and zeros
    bit_source_t source;
};

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

// One run of any length, code by code; -1 when it is none.
int line_reader_t::run(int colour)
{
    if (!fill())
        return -1;
    int sum = 0;
    for (int codes = 0; codes < 2; codes++) {
        unsigned code = tables.one[colour][source.peek(fast_tables_t::one_bits)];
        source.skip(code & 15);
        sum += code >> 4;
        if (code >> 4 < 64)
            return sum;
    }
    return -1;
}

bool line_reader_t::one_dimensional(line_changes_t &line)
{
    if (fill() && source.peek(white_length) == white_bits) {
        source.skip(white_length);
        line.end(0);
        return true;
    }
    int16_t *out = line.at();
    int pos = 0, colour = 0;
    bit_source_t in = source;
    for (;;) {
        if (end - in.next < 8) {
            source = in;
            if (!extend())
                return false;
            in = source;
        }
        in.fill();
        for (int block = 0; block < 4; block++) {
            uint64_t runs = tables.runs[colour][in.peek(fast_tables_t::runs_bits)];
            if (runs >> 60 == 0) {
                source = in;
                int length = run(colour);
                in = source;
                if (length < 0 || (length == 0 && out != line.at()))
                    return false;
                pos += length;
                *out++ = static_cast<int16_t>(pos);
                colour ^= 1;
                block = 4;
            } else {
                uint64_t sums = runs + static_cast<uint64_t>(pos) * 0x100010001;
                memcpy(out, &sums, sizeof sums);
                out += runs >> 60;
                in.skip(runs >> 48 & 15);
                pos += runs >> 32 & 0xffff;
                colour ^= runs >> 59 & 1;
            }
            if (pos >= width) {
                source = in;
                line.end(static_cast<int>(out - line.at()) - 1);
                return pos == width;
            }
        }
    }
}

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

// Behind a horizontal mode's code: its two runs.
bool line_reader_t::horizontal(line_state_t &state, int16_t *out, const int16_t *above)
{
    int from = state.a0 < 0 ? 0 : state.a0, colour = state.n & 1;
    uint64_t runs = tables.runs[colour][source.peek(fast_tables_t::runs_bits)];
    int a1, a2;
    if (runs >> 60 >= 2) {
        a1 = from + static_cast<int>(runs & 0xffff);
        a2 = from + static_cast<int>(runs >> 16 & 0xffff);
        source.skip(runs >> 52 & 15);
    } else {
        int first = run(colour), second = run(!colour);
        a1 = from + first;
        a2 = a1 + second;
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

// One mode. After a vertical one b1 may be the next element, but also one two behind or in front of that.
bool line_reader_t::mode(line_state_t &state, int16_t *out, const int16_t *above)
{
    const fast_tables_t::modes_t &modes = tables.modes[source.peek(fast_tables_t::modes_bits)];
    source.skip(modes.lengths & 15);
    const bool pass = modes.count == 0;
    if (pass && modes.last != T4_PASS)
        return modes.last == T4_HORIZONTAL && horizontal(state, out, above);
    const int to = above[state.i + pass] + modes.offset[0];
    if (to <= state.a0 || to > width - pass)
        return false;
    out[state.n] = static_cast<int16_t>(to);
    state.n += !pass;
    state.a0 = to;
    if (to == width)
        return true;
    state.i += 1 + pass;
    state.i += 2 * (above[state.i] <= to) - 2 * (above[state.i - 2] > to);
    while (above[state.i] <= to)
        state.i += 2;
    return true;
}

// Up to seven vertical modes at once and what is behind them, or one mode where that cannot be.
bool line_reader_t::modes(line_state_t &state, int16_t *out, const line_changes_t &above)
{
    const fast_tables_t::modes_t &modes = tables.modes[source.peek(fast_tables_t::modes_bits)];
    // The next b1 is the next element as long as the a1 ascend, each at least at the element in front of its
    // b1 and in front of that behind it.
    const int16_t *b1 = above.at() + state.i;
    offsets_t offsets;
    memcpy(&offsets, modes.offset, sizeof offsets);
    block_t a1 = load_block(b1) + __builtin_convertvector(offsets, block_t);
    memcpy(out + state.n, &a1, sizeof a1);
    block_t before = __builtin_shufflevector(a1, a1, 0, 0, 1, 2, 3, 4, 5, 6);
    before[0] = static_cast<int16_t>(state.a0);
    int good = first_false((a1 < load_block(b1 + 1)) & (a1 > before) & (a1 >= load_block(b1 - 1)));
    int left = above.count - state.i;  // none of these may be the width
    if (modes.count <= good && modes.count <= left) {
        source.skip(modes.length);
        state.n += modes.count;
        state.i += modes.count;
        state.a0 = modes.count ? out[state.n - 1] : state.a0;
        if (modes.last == T4_HORIZONTAL)
            return horizontal(state, out, above.at());
        if (modes.last == T4_PASS) {
            state.a0 = above.at()[state.i + 1];
            state.i += 2;
        }
        return modes.length > 0 && state.a0 < width;
    }
    good = std::min(good, std::max(left, 0));
    if (good > 0) {
        source.skip(modes.lengths >> 4 * (good - 1) & 15);
        state.n += good;
        state.i += good;
        state.a0 = out[state.n - 1];
    }
    return mode(state, out, above.at());
}

bool line_reader_t::two_dimensional(line_changes_t &line, const line_changes_t &above)
{
    int16_t *out = line.at();
    line_state_t state;
    const bool dense = above.count > width / 4;  // so that blocks of modes would not go far
    while (state.a0 < width)
        if (!fill() || !(dense ? mode(state, out, above.at()) : modes(state, out, above)))
            return false;
    while (state.n > 0 && out[state.n - 1] == width)
        state.n--;
    line.end(state.n);
    return true;
}

// How often, up to `most` times, the line above follows: V0 for each of its elements and for its end.
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
    const bool has_eols = page.df != 3, has_tags = page.df == 1;
    bool one_dimensional = page.df == 0 || (page.df == 1 && page.one_dimensional);
    long lines = 0;
    for (;;) {
        int times = one_dimensional ? 0 : reader.repeats(*above, has_eols ? 1 : 56);
        if (times == 0 &&
            !(one_dimensional ? reader.one_dimensional(*line) : reader.two_dimensional(*line, *above)))
            break;
        const bool same = times > 0 || (one_dimensional && line->count == 0 && above->count == 0);
        if ((has_eols && !reader.eol(has_tags ? &one_dimensional : nullptr)) ||
            reader.bit() > 8 * page.length)
            break;
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
