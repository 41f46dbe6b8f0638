// Decodes every value that the next bits of a page can have, one code at a time, and notes what came out.
#include "codec/fast_tables.h"

namespace faxtray {

using run_codes_t = std::array<t4_code_t, EncTabSize>;

// Calls `enter` for each number of `bits` bits that begins (at the least significant bit) with the code.
template <class Enter> static void for_each_with(const t4_code_t &code, int bits, Enter enter)
{
    for (unsigned number = code.bits; number < 1u << bits; number += 1u << code.length)
        enter(number);
}

namespace {

struct run_code_t {
    int16_t run = no_code;
    uint16_t length = 0;

    bool is_make_up() const { return run >= 64; }
};

// [white, black]: the run code that bits begin with. None are those wider than a line, and EOL.
constexpr unsigned longest_run_code = 13;
using codes_at_t = std::array<std::array<run_code_t, 1 << longest_run_code>, 2>;

// Reads the bits that index a table, code by code.
class number_reader_t {
public:
    // `zeros` were read before the number.
    number_reader_t(const codes_at_t &codes_at_, unsigned number, unsigned zeros_)
        : codes_at(codes_at_), bits(number << zeros_), zeros(zeros_)
    {
    }

    unsigned length() const { return at - (at > 0 ? zeros : 0); }

    // The next code, without taking it; no code if it does not lie whole within the number.
    run_code_t run(int colour) const
    {
        const run_code_t code = codes_at[colour][bits >> at & ((1u << longest_run_code) - 1)];
        return fits(code.length) ? code : run_code_t();
    }

    int mode() const
    {
        int mode = T4_PASS;
        while (mode < T4_TAG_1D && (!fits(enc2D[mode].length) ||
                                    (bits >> at & ((1u << enc2D[mode].length) - 1)) != enc2D[mode].bits))
            mode++;
        return mode;  // T4_TAG_1D for none
    }

    void take(unsigned bits_of_code) { at += bits_of_code; }

private:
    bool fits(unsigned bits_of_code) const { return at + bits_of_code <= table_bits + zeros; }

    const codes_at_t &codes_at;
    const unsigned bits, zeros;
    unsigned at = 0;
};

}  // namespace

static void find_codes(const run_codes_t &codes, std::array<run_code_t, 1 << longest_run_code> &at)
{
    for (unsigned run = 0; run <= 1728; run += run < 64 ? 1 : 64) {
        const t4_code_t &code = codes[run < 64 ? run : 63 + run / 64];
        for_each_with(code, longest_run_code, [&](unsigned number) {
            at[number] = {static_cast<int16_t>(run), code.length};
        });
    }
}

// Whether a longer code may begin with the number.
static bool may_be_long(unsigned number)
{
    return number % (1u << long_code_zeros) == 0;
}

// A run of 0 is plain only at the start of a line, and as what is left after a make-up code.
static runs_t runs_within(const codes_at_t &codes_at, unsigned number, unsigned state)
{
    const bool after_zeros = state == black_run_zeros || state == black_rest_zeros;
    int black = state == black_run || state == black_rest || after_zeros;
    bool may_be_0 = state != white_run && state != black_run && state != black_run_zeros;
    bool rest = may_be_0 && state != line_start;
    number_reader_t reader(codes_at, number, after_zeros ? long_code_zeros : 0);
    runs_t runs;
    while (runs.count() < 3) {
        const run_code_t code = reader.run(black);
        if (code.run == no_code || (code.run == 0 && !may_be_0) || (code.is_make_up() && rest))
            break;
        reader.take(code.length);
        rest = may_be_0 = code.is_make_up();
        black ^= !rest;
        runs = runs.and_code(code.run, !rest, reader.length(), (rest ? white_rest : white_run) + black);
    }
    if (runs.length() > 0)
        return runs;
    if ((state == black_run || state == black_rest) && may_be_long(number))
        return runs.and_code(0, false, long_code_zeros, rest ? black_rest_zeros : black_run_zeros);
    return runs.and_code(no_code, false, 0, white_run);
}

// Parts 1 and 2, and the mode of part 3, from which it returns the state.
static unsigned read_modes(number_reader_t &reader, step_t &step, unsigned colour)
{
    const auto take = [&](int mode) {
        reader.take(enc2D[mode].length);
        step.first = static_cast<uint8_t>(step.first ? step.first : reader.length());
    };
    int mode;
    while (mode = reader.mode(),
           (mode == T4_V0 || mode == T4_VL1) && step.verticals < step_t::most_verticals) {
        take(mode);
        step.run = mode == T4_VL1 ? -1 : 0;  // from that element to a0
        step.lefts = static_cast<uint8_t>(step.lefts | -step.run << step.verticals);
        step.verticals++;
        colour ^= 1;
    }
    step.anchor = step.verticals;
    bool passed = false;
    for (; mode == T4_PASS; mode = reader.mode(), passed = true) {
        take(mode);
        step.run = 0;
        step.anchor = static_cast<uint8_t>(step.anchor + 2);
    }
    if (mode == T4_HORIZONTAL) {
        take(mode);
        return white_first + colour;
    }
    // Other modes could lead back over b2, which would not be noticed within an entry.
    if (mode < T4_V0 || mode > T4_VR3 || (passed && (mode == T4_VL2 || mode == T4_VL3)))
        return colour;
    take(mode);
    step.run = static_cast<int16_t>(mode <= T4_VL3 ? T4_V0 - mode : mode - T4_VL3);
    step.anchor++;
    step.changes = 1;
    return colour ^ 1;
}

// The codes of up to two runs. Make-up codes of the second are left to an entry of their own.
static unsigned read_runs(number_reader_t &reader, step_t &step, unsigned state)
{
    unsigned colour = state < black_first_zeros ? state & 1 : 1;
    bool second = state == white_second || state == black_second || state == black_second_zeros;
    for (;;) {
        const run_code_t code = reader.run(static_cast<int>(colour));
        if (code.run == no_code || (step.changes > 0 && code.is_make_up()))
            return reader.length() > 0 ? (second ? white_second : white_first) + colour : state;
        reader.take(code.length);
        if (step.changes > 0)
            step.second = static_cast<uint8_t>(code.run);
        else
            step.run = static_cast<int16_t>(step.run + code.run);
        if (code.is_make_up())
            continue;
        step.changes++;
        colour ^= 1;
        if (second)
            return colour;
        second = true;
    }
}

static step_t step_within(const codes_at_t &codes_at, unsigned number, unsigned state)
{
    number_reader_t reader(codes_at, number, state < black_first_zeros ? 0 : long_code_zeros);
    step_t step;
    unsigned next = state <= black_mode ? read_modes(reader, step, state) : state;
    if (next > black_mode)
        next = read_runs(reader, step, next);
    step.length = static_cast<uint8_t>(reader.length());
    if (step.length == 0 && (state == black_first || state == black_second) && may_be_long(number)) {
        step.length = long_code_zeros;
        next = state == black_first ? black_first_zeros : black_second_zeros;
    } else if (step.length == 0) {
        step.run = no_code;
    }
    step.next = static_cast<uint8_t>(next);
    return step;
}

// A run's make-up code, if it needs one, and its terminating code as one code.
static coded_run_t coded_run(const run_codes_t &codes, unsigned run)
{
    const t4_code_t make_up = run < 64 ? t4_code_t{0, 0} : codes[63 + run / 64], rest = codes[run % 64];
    return {make_up.bits | static_cast<uint32_t>(rest.bits) << make_up.length,
            static_cast<unsigned>(make_up.length + rest.length)};
}

static fast_tables_t make_tables()
{
    fast_tables_t tables = {};
    codes_at_t codes_at;
    find_codes(encwhite, codes_at[0]);
    find_codes(encblack, codes_at[1]);
    for (unsigned i = 0; i < tables.runs.size(); i++)
        tables.runs[i] = runs_within(codes_at, i % (1u << table_bits), i >> table_bits);
    for (unsigned i = 0; i < tables.steps.size(); i++)
        tables.steps[i] = step_within(codes_at, i % (1u << table_bits), i >> table_bits);
    for (unsigned lefts = 0; lefts < tables.lefts.size(); lefts++)
        for (int i = 0; i < step_t::most_verticals; i++)
            tables.lefts[lefts][i] = static_cast<int16_t>(-(lefts >> i & 1));
    for (int offset = -3; offset <= 3; offset++)
        tables.vertical[offset + 3] = enc2D[offset <= 0 ? T4_V0 - offset : T4_VL3 + offset];
    for (unsigned run = 0; run < tables.coded[0].size(); run++) {
        tables.coded[0][run] = coded_run(encwhite, run);
        tables.coded[1][run] = coded_run(encblack, run);
    }
    return tables;
}

const fast_tables_t &fast_tables()
{
    static const fast_tables_t tables = make_tables();
    return tables;
}

}  // namespace faxtray
