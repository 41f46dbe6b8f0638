// fast_tables: what the fast coders look up, computed from the code tables on first use.
//
// Entries are packed, so that a look-up is one load and the tables a decoder uses most (48 KiB) stay in the
// cache. Only its own type knows how an entry is packed.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "codec/t4_codes.h"

namespace faxtray {

// One run code as the decoder meets it.
//
//    15                  4 3      0
//   +---------------------+--------+
//   |         run         | length |      pixels; bits of the code
//   +---------------------+--------+
class run_code_t {
public:
    constexpr run_code_t() = default;
    constexpr run_code_t(int run, int length) : word_(static_cast<uint16_t>(run << 4 | length)) {}

    constexpr int run() const { return word_ >> 4; }
    constexpr int length() const { return word_ & 15; }
    constexpr bool is_make_up() const { return run() >= 64; }

    // In place of bits that begin no run code: a "run" wider than any line, so that it ends the line and is
    // refused without a test of its own.
    static constexpr run_code_t none() { return {4095, 1}; }

private:
    uint16_t word_ = 0;
};

// Up to three whole runs, each a terminating code with or without a make-up code before it.
//
//    63   60 59  58 56 55    52 51  48 47      32 31      16 15       0
//   +-------+---+-----+--------+------+----------+----------+----------+
//   | count |odd|  0  | of two |length|  end 2   |  end 1   |  end 0   |
//   +-------+---+-----+--------+------+----------+----------+----------+
//
// end 0, 1, 2: where the first, second and third run end, in pixels from the start of the first; with fewer
// than three runs the last end is repeated. length: bits of all the codes; of two: bits of the first two
// runs' codes. odd: the next run has the other colour.
class runs_t {
public:
    constexpr runs_t() = default;

    constexpr int count() const { return static_cast<int>(word_ >> 60); }
    constexpr bool changes_colour() const { return word_ >> 59 & 1; }
    constexpr unsigned length_of_two() const { return word_ >> 52 & 15; }
    constexpr unsigned length() const { return word_ >> 48 & 15; }
    constexpr int end(int i) const { return static_cast<int>(word_ >> 16 * i & 0xffff); }
    constexpr int pixels() const { return end(2); }

    // Stores the ends of runs that begin at pixel `from`: always four elements, of which count() matter. One
    // addition makes all three, because no end reaches 65,536.
    void store_ends(int from, int16_t *to) const
    {
        const uint64_t ends = word_ + static_cast<uint64_t>(from) * 0x1'0001'0001;
        memcpy(to, &ends, sizeof ends);
    }

    // This with one more run, whose codes end at bit `length`.
    constexpr runs_t and_run(int run, unsigned length) const
    {
        const int runs = count() + 1;
        uint64_t word = static_cast<uint64_t>(runs) << 60 | static_cast<uint64_t>(runs & 1) << 59 |
                        static_cast<uint64_t>(runs == 2 ? length : length_of_two()) << 52 |
                        static_cast<uint64_t>(length) << 48;
        for (int i = 0; i < 3; i++)
            word |= static_cast<uint64_t>(i < runs - 1 ? end(i) : pixels() + run) << 16 * i;
        return runs_t(word);
    }

private:
    explicit constexpr runs_t(uint64_t word) : word_(word) {}
    uint64_t word_ = 0;
};

// Up to seven vertical modes, and a pass or horizontal mode if one follows them.
//
//    31   28              7    4 3    0
//   +------+--    --+------+------+
//   | of 8 |  ...   | of 2 | of 1 |       lengths: bits of the first one, two... modes
//   +------+--    --+------+------+
class modes_t {
public:
    constexpr int vertical() const { return count_; }            // how many vertical modes
    constexpr const int8_t *offsets() const { return offset_; }  // their a1 - b1; 8 elements
    constexpr int last() const { return last_; }           // T4_PASS, T4_HORIZONTAL, or T4_V0 for neither
    constexpr unsigned length() const { return length_; }  // bits of all; 0 when the next bits are no mode
    constexpr unsigned length_of(int n) const { return lengths_ >> 4 * (n - 1) & 15; }  // of the first n >= 1

    constexpr bool full() const { return count_ == 7 || last_ != T4_V0; }

    // Adds a mode, whose code ends at bit `length`, to modes that are not full.
    constexpr void add(int mode, unsigned length)
    {
        length_ = static_cast<uint8_t>(length);
        lengths_ |= static_cast<uint32_t>(length) << 4 * count_;
        if (mode < T4_V0)
            last_ = static_cast<uint8_t>(mode);
        else
            offset_[count_++] = static_cast<int8_t>(mode <= T4_VL3 ? T4_V0 - mode : mode - T4_VL3);
    }

private:
    int8_t offset_[8] = {};
    uint32_t lengths_ = 0;
    uint8_t count_ = 0, length_ = 0, last_ = T4_V0;
};

// All codes of a run for the encoder, the make-up code first; up to 26 bits.
//
//    31                         5 4      0
//   +----------------------------+--------+
//   |            bits            | length |      the bit sent first in the lowest place
//   +----------------------------+--------+
class coded_run_t {
public:
    constexpr coded_run_t() = default;
    constexpr coded_run_t(uint32_t bits, unsigned length) : word_(bits << 5 | length) {}

    constexpr uint64_t bits() const { return word_ >> 5; }
    constexpr unsigned length() const { return word_ & 31; }

private:
    uint32_t word_ = 0;
};

struct fast_tables_t {
    // Decoding, by the next bits of the page. Widths in bits: `one` takes the longest run code, the others
    // what a table in the cache has room for.
    static constexpr int one_bits = 13, runs_bits = 11, modes_bits = 10;
    using one_t = std::array<run_code_t, 1 << one_bits>;

    std::array<one_t, 2> one;                                // [white, black]: the code at the next bits
    std::array<std::array<runs_t, 1 << runs_bits>, 2> runs;  // whole runs at the next bits, none of them 0,
                                                             // the first of that colour
    std::array<modes_t, 1 << modes_bits> modes;              // whole modes at the next bits

    // Encoding
    std::array<t4_code_t, 7> vertical;                   // by a1 - b1 + 3
    std::array<std::array<coded_run_t, 1729>, 2> coded;  // [white, black] by run
};

const fast_tables_t &fast_tables();

}  // namespace faxtray
