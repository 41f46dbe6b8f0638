// fast_tables: what the fast coders look up, derived from the code tables when first asked for.
#pragma once

#include <array>
#include <cstdint>

#include "codec/t4_codes.h"

namespace faxtray {

struct fast_tables_t {
    // The code that the next 13 bits begin with: its run, or more than the width, times 16, and its length.
    static constexpr int one_bits = 13;
    using one_t = std::array<uint16_t, 1 << one_bits>;

    // Up to three runs that lie whole in the next 11 bits, none of them 0, make-up codes included. From the
    // lowest place: three times 16 bits with the sums of the first, the first two and all three runs (the
    // last sum repeated), 4 bits the length of all codes, 4 bits the length of the first two runs' codes, 3
    // bits 0, 1 bit set when the next run has the other colour, 4 bits the number of runs.
    static constexpr int runs_bits = 11;
    using runs_t = std::array<uint64_t, 1 << runs_bits>;

    // Up to seven vertical modes that lie whole in the next 10 bits, and a pass or horizontal mode behind
    // them.
    static constexpr int modes_bits = 10;
    struct modes_t {
        int8_t offset[8];  // a1 - b1
        uint32_t lengths;  // times 4 bits: of the first mode, the first two...
        uint8_t count;     // of the vertical modes
        uint8_t length;    // of all modes; 0 when the next bits are no mode
        uint8_t last;      // T4_PASS, T4_HORIZONTAL, or T4_V0 for neither
    };

    // A run's codes, make-up code first: bits times 32 and length.
    using run_codes_t = std::array<uint32_t, 1729>;

    std::array<t4_code_t, 7> vertical;  // VL3 to VR3

    std::array<one_t, 2> one;  // white, black
    std::array<runs_t, 2> runs;
    std::array<modes_t, 1 << modes_bits> modes;
    std::array<run_codes_t, 2> run_codes;
};

extern const fast_tables_t &fast_tables();

}  // namespace faxtray
