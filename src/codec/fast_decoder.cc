// Reads several codes with one look-up. A line reader that meets anything it would have to judge gives its
// line up; the walk then reads it from its start.
//
// What costs time is a branch that the processor guesses wrong. So which codes come next decides what is
// added and where it is stored, not what is executed: bits are taken 56 or more at a time into one word,
// elements are written in blocks and only counted as far as they are right, and validity is tested once a
// line.
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

}  // namespace

// Look-ups of table_bits bits that the valid ones are enough for.
static constexpr int lookups_a_fill = 56 / table_bits;

static block_t load_block(const int16_t *from)
{
    block_t block;
    memcpy(&block, from, sizeof block);
    return block;
}

// Whether the elements are in strictly ascending order, the first not left of pixel 0.
static bool ascending(const line_changes_t &line)
{
    const int16_t *at = line.at();
    block_t wrong = {};
    for (int i = -1; i < line.count; i += 8) {
        const block_t left = load_block(at + i), right = load_block(at + i + 1);
        wrong |= (left >= right) & (left < width);  // the copies of the width at the end are equal
    }
    uint64_t halves[2];
    memcpy(halves, &wrong, sizeof wrong);
    return (halves[0] | halves[1]) == 0;
}

// Keeps the compiler from making a branch of a choice that would be guessed wrong half of the time.
static bool unpredictable(bool choice)
{
    return __builtin_expect_with_probability(choice, 0, 0.5);
}

// b1: the first element right of a0 among every second one from `b1` - 2 on. Mostly it is one of five, which
// are compared all at once.
static const int16_t *right_of(int a0, const int16_t *b1)
{
    const int16_t *near = unpredictable(b1[-2] > a0) ? b1 - 2 : b1;
    near = unpredictable(b1[0] <= a0) ? b1 + 2 : near;
    const int16_t *far = unpredictable(b1[4] <= a0) ? b1 + 6 : b1 + 4;
    b1 = unpredictable(b1[2] <= a0) ? far : near;
    while (*b1 <= a0)
        b1 += 2;
    return b1;
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
    bool fill() { return fill(source); }

    // Makes at least 56 bits of `in` valid, zeros after the end of the data. False if they would begin far
    // beyond it. `in` is `source`, or its copy in a function that writes elements: the compiler keeps a copy
    // in registers, while the member might alias what is written.
    bool fill(bit_source_t &in)
    {
        if (end - in.next < 8) [[unlikely]] {
            source = in;
            if (!extend())
                return false;
            in = source;
        }
        in.fill();
        return true;
    }

    bool extend();
    const step_t &step_at(const step_t *table, const bit_source_t &in, const int16_t *b1,
                          const int16_t *last);

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

// A line of runs, which must fill it exactly.
bool line_reader_t::one_dimensional(line_changes_t &line)
{
    // Most lines of most pages are white. Their code is longer than one look-up.
    if (fill() && source.peek(static_cast<int>(white_line.length())) == white_line.bits()) {
        source.skip(white_line.length());
        line.end(0);
        return true;
    }
    int16_t *out = line.at();
    int pos = 0;
    unsigned state = line_start;
    bit_source_t in = source;
    while (fill(in))
        for (int lookups = 0; lookups < lookups_a_fill; lookups++) {
            const runs_t runs = (&tables.runs[state << table_bits])[in.peek(table_bits)];
            in.skip(runs.length());
            state = runs.next();
            runs.store_ends(pos, out);
            out += runs.count();
            pos += runs.pixels();
            if (pos < width || (pos == width && state > black_run))  // the rest of the last run may be 0
                continue;
            if (pos > width)
                return false;
            source = in;
            line.end(static_cast<int>(out - line.at()) - 1);  // the last end is the width
            return true;
        }
    return false;
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

// What the next bits say. Near the end of the line above an entry may reach into the next line; then only its
// first mode is taken, or those of its V0s that lie within this line. The bits behind these are looked up as
// zeros, which begin no code.
const step_t &line_reader_t::step_at(const step_t *table, const bit_source_t &in, const int16_t *b1,
                                     const int16_t *last)
{
    const step_t &step = table[in.peek(table_bits)];
    if (b1 + step.anchor <= last || step.anchor == 0) [[likely]]
        return step;
    const int V0s = std::countr_one(in.peek(table_bits)), left = static_cast<int>(last - b1) + 1;
    return table[in.peek(V0s > 0 ? std::min(V0s, std::max(left, 1)) : step.first)];
}

// A line of modes, until a0 is the width. `damage` becomes negative if an a1 is left of its a0; within an
// entry and in the list it would break the order, which is looked at in the end.
bool line_reader_t::two_dimensional(line_changes_t &line, const line_changes_t &above)
{
    const int16_t *b1 = above.at(), *const last = b1 + above.count;
    int16_t *out = line.at();
    int a0 = 0, damage = 0;
    unsigned state = white_mode;
    bit_source_t in = source;
    while (damage >= 0 && out - line.at() <= width && fill(in))
        for (int lookups = 0; lookups < lookups_a_fill; lookups++) {
            const step_t &step = step_at(&tables.steps[state << table_bits], in, b1, last);
            in.skip(step.length);
            state = step.next;

            // Parts 1 and 2: eight elements of the line above, though fewer count.
            const block_t block = load_block(b1) + load_block(tables.lefts[step.lefts].data());
            memcpy(out, &block, sizeof block);
            out += step.verticals;
            b1 += step.anchor;

            // Part 3. The choice between a0 and an element is made by a mask.
            const int from_a0 = -(step.anchor == 0);
            const int a1 = ((a0 & from_a0) | (b1[-1] & ~from_a0)) + step.run, a2 = a1 + step.second;
            out[0] = static_cast<int16_t>(a1);
            out[1] = static_cast<int16_t>(a2);
            out += step.changes;
            damage |= a1 - a0;
            a0 = a2;
            if (a0 < width) {
                b1 = right_of(a0, b1);
            } else if (a0 > width || damage < 0) {
                return false;
            } else if (state <= black_mode) {  // in the others the rest of the last run must be 0
                source = in;
                while (out > line.at() && out[-1] == width)  // the end of the line is no element
                    out--;
                line.end(static_cast<int>(out - line.at()));
                return ascending(line);
            }
        }
    return false;
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
