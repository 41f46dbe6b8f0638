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

// EOL, the last row, is left out: where one comes, the fast path has nothing to look up.
static void make_one(const run_codes_t &codes, fast_tables_t::one_t &one)
{
    one.fill(run_code_t::none());
    for (int row = 0; row < EncTabSize - 1; row++) {
        const int run = row < 64 ? row : (row - 63) * 64;
        for_each_with(codes[row], fast_tables_t::one_bits,
                      [&](unsigned number) { one[number] = run_code_t(run, codes[row].length); });
    }
}

// The runs whose codes lie whole within the low bits of `number`. Runs of 0 are left out: between two changes
// there is none, so a decoder that copies ends from here never makes two equal changing elements. A white run
// of 0 at the start of a line is legal and is left to the decoder too.
static runs_t runs_within(const std::array<fast_tables_t::one_t, 2> &one, unsigned number, int colour)
{
    runs_t runs;
    while (runs.count() < 3) {
        const run_code_t first = one[colour][number >> runs.length()];
        int run = first.run();
        unsigned end = runs.length() + first.length();
        if (first.is_make_up()) {
            const run_code_t rest = one[colour][number >> end];
            if (rest.is_make_up())
                break;
            run += rest.run();
            end += rest.length();
        }
        // The bits above `number` are 0 here, but not on the page: a code that reaches into them was guessed.
        if (end > fast_tables_t::runs_bits || run == 0)
            break;
        runs = runs.and_run(run, end);
        colour = !colour;
    }
    return runs;
}

// The mode whose code the number begins with; T4_TAG_1D for none.
static int mode_at(unsigned number)
{
    int mode = T4_PASS;
    while (mode < T4_TAG_1D && (number & ((1u << enc2D[mode].length) - 1)) != enc2D[mode].bits)
        mode++;
    return mode;
}

// The modes whose codes lie whole within the low bits of `number`. A pass or horizontal mode is the last:
// what follows it depends on the line above, or is runs.
static modes_t modes_within(unsigned number)
{
    modes_t modes;
    while (!modes.full()) {
        const int mode = mode_at(number >> modes.length());
        if (mode == T4_TAG_1D || modes.length() + enc2D[mode].length > fast_tables_t::modes_bits)
            break;
        modes.add(mode, modes.length() + enc2D[mode].length);
    }
    return modes;
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
    make_one(encwhite, tables.one[0]);
    make_one(encblack, tables.one[1]);
    for (unsigned number = 0; number < 1u << fast_tables_t::runs_bits; number++)
        for (int colour : {0, 1})
            tables.runs[colour][number] = runs_within(tables.one, number, colour);
    for (unsigned number = 0; number < 1u << fast_tables_t::modes_bits; number++)
        tables.modes[number] = modes_within(number);
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
