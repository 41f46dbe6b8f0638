// Every number that the next bits can be is looked up once, code by code.
#include "codec/fast_tables.h"

namespace faxtray {

static constexpr int no_run = 4095;

// Calls `enter` for each number of `bits` bits that begins (at the least significant bit) with the code.
template <class Enter> static void for_each_with(const t4_code_t &code, int bits, Enter enter)
{
    for (unsigned number = code.bits; number < 1u << bits; number += 1u << code.length)
        enter(number);
}

static void make_one(const std::array<t4_code_t, EncTabSize> &codes, fast_tables_t::one_t &one)
{
    one.fill(no_run << 4 | 1);
    for (int row = 0; row < EncTabSize - 1; row++) {
        int run = row < 64 ? row : (row - 63) * 64;
        for_each_with(codes[row], fast_tables_t::one_bits, [&](unsigned number) {
            one[number] = static_cast<uint16_t>(run << 4 | codes[row].length);
        });
    }
}

static uint64_t runs_within(const std::array<fast_tables_t::one_t, 2> &one, unsigned number, int colour)
{
    int sum = 0, length = 0, length_of_two = 0;
    uint64_t sums = 0, count = 0;
    for (; count < 3; count++) {
        int end = length, make_up = 0, code = one[colour][number >> end];
        end += code & 15;
        if (code >> 4 >= 64) {
            make_up = code >> 4;
            code = one[colour][number >> end];
            end += code & 15;
        }
        int run = make_up + (code >> 4);
        if (code >> 4 >= 64 || end > fast_tables_t::runs_bits || run == 0)
            break;
        sum += run;
        length = end;
        length_of_two = count == 1 ? length : length_of_two;
        for (uint64_t lane = count; lane < 3; lane++)
            sums = (sums & ~(uint64_t{0xffff} << 16 * lane)) | uint64_t(sum) << 16 * lane;
        colour = !colour;
    }
    return sums | uint64_t(length) << 48 | uint64_t(length_of_two) << 52 | (count & 1) << 59 | count << 60;
}

// The mode whose code the number begins with; T4_TAG_1D for none.
static int mode_at(unsigned number)
{
    int mode = T4_PASS;
    while (mode < T4_TAG_1D && (number & ((1u << enc2D[mode].length) - 1)) != enc2D[mode].bits)
        mode++;
    return mode;
}

static fast_tables_t::modes_t modes_within(unsigned number)
{
    fast_tables_t::modes_t modes = {{}, 0, 0, 0, T4_V0};
    while (modes.last == T4_V0 && modes.count < 7) {
        int mode = mode_at(number >> modes.length);
        if (mode == T4_TAG_1D || modes.length + enc2D[mode].length > fast_tables_t::modes_bits)
            break;
        modes.length = static_cast<uint8_t>(modes.length + enc2D[mode].length);
        modes.lengths |= static_cast<uint32_t>(modes.length) << 4 * modes.count;
        if (mode < T4_V0) {
            modes.last = static_cast<uint8_t>(mode);
        } else {
            modes.offset[modes.count++] = static_cast<int8_t>(mode <= T4_VL3 ? T4_V0 - mode : mode - T4_VL3);
        }
    }
    return modes;
}

static void make_run_codes(const std::array<t4_code_t, EncTabSize> &codes,
                           fast_tables_t::run_codes_t &run_codes)
{
    for (unsigned run = 0; run < run_codes.size(); run++) {
        t4_code_t make_up = run < 64 ? t4_code_t{0, 0} : codes[63 + run / 64], rest = codes[run % 64];
        run_codes[run] = (make_up.bits | static_cast<uint32_t>(rest.bits) << make_up.length) << 5 |
                         (make_up.length + rest.length);
    }
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
    make_run_codes(encwhite, tables.run_codes[0]);
    make_run_codes(encblack, tables.run_codes[1]);
    return tables;
}

const fast_tables_t &fast_tables()
{
    static const fast_tables_t tables = make_tables();
    return tables;
}

}  // namespace faxtray
