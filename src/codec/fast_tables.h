// fast_tables: what the fast coders look up, computed from the code tables on first use.
//
// The decoding tables are indexed by what may come next in a line (a state) and by the next `table_bits`
// bits. An entry tells what all the codes do that lie whole within these bits, and the state that follows, so
// that a decoder goes from entry to entry without a branch that depends on the page. Longer codes are read in
// two steps: zeros first, the rest of the code in a state of its own. Bits that begin no code end the line
// beyond its width.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

#include "codec/t4_codes.h"

namespace faxtray {

inline constexpr unsigned table_bits = 11;
inline constexpr unsigned long_code_zeros =
    4;                                // every code longer than table_bits begins with these, and is black
inline constexpr int no_code = 4095;  // pixels, in place of a run

// In a one-dimensional line: a run of that colour, at the start of a line also of 0 pixels; what is left of
// it after a make-up code; the same after long_code_zeros.
enum run_state_t : unsigned {
    line_start,
    white_run,
    black_run,
    white_rest,
    black_rest,
    black_run_zeros,
    black_rest_zeros,
    run_states
};

// Up to three runs, and a make-up code of the next.
//
//    63  61 60  59    54 53  50 49   48 47      32 31      16 15       0
//   +------+---+--------+------+-------+----------+----------+----------+
//   | next | 0 | length |   0  | count |  end 2   |  end 1   |  end 0   |
//   +------+---+--------+------+-------+----------+----------+----------+
//
// next: the state; length: bits of all the codes; count: runs; end 0, 1, 2: where the first, second and third
// end, in pixels from the start of the first; with fewer than three runs, where the codes end.
class runs_t {
public:
    constexpr runs_t() = default;

    constexpr int count() const { return static_cast<int>(word_ >> 48 & 3); }
    constexpr unsigned length() const { return word_ >> 54 & 63; }
    constexpr unsigned next() const { return static_cast<unsigned>(word_ >> 61); }
    constexpr int pixels() const { return end(2); }

    // Stores the ends of runs that begin at pixel `from`: always four elements, of which count() matter. One
    // addition makes all three, because no end reaches 65,536.
    void store_ends(int from, int16_t *to) const
    {
        const uint64_t ends = word_ + static_cast<uint64_t>(from) * 0x1'0001'0001;
        memcpy(to, &ends, sizeof ends);
    }

    // This with another code of `run` pixels, which ends at bit `length`; `complete` if it ends a run.
    constexpr runs_t and_code(int run, bool complete, unsigned length, unsigned next) const
    {
        const int runs = count() + complete;
        uint64_t word = static_cast<uint64_t>(next) << 61 | static_cast<uint64_t>(length) << 54 |
                        static_cast<uint64_t>(runs) << 48;
        for (int i = 0; i < 3; i++)
            word |= static_cast<uint64_t>(i < count() ? end(i) : pixels() + run) << 16 * i;
        return runs_t(word);
    }

private:
    explicit constexpr runs_t(uint64_t word) : word_(word) {}
    constexpr int end(int i) const { return static_cast<int>(word_ >> 16 * i & 0xffff); }
    uint64_t word_ = 0;
};

// In a two-dimensional line: a mode, where the colour is that one; the first or second run of a horizontal
// mode, or what is left of it after make-up codes; the same after long_code_zeros.
enum step_state_t : unsigned {
    white_mode,
    black_mode,
    white_first,
    black_first,
    white_second,
    black_second,
    black_first_zeros,
    black_second_zeros,
    step_states
};

// Some codes of a two-dimensional line, as what they do to it. Each part may be missing:
//
//   1. V0 and VL1 in any order. After each b1 is the next element of the line above, wherever that is.
//   2. Pass modes, each of which moves b1 on by two elements.
//   3. Another vertical mode; or a horizontal one, as far as its codes are there.
//
// So part 1 copies elements of the line above, for VL1 less 1, and part 3 starts from one of them or from a0.
struct step_t {
    static constexpr int most_verticals = 8;

    int16_t run = 0;            // part 3: pixels from its start to a1
    uint8_t second = 0;         // part 3: from a1 to a2
    uint8_t next = white_mode;  // the state
    uint8_t length = 0;         // bits of all codes
    uint8_t lefts = 0;          // part 1: bit n is set if mode n is VL1
    uint8_t verticals : 4 = 0;  // part 1: modes
    uint8_t anchor : 4 = 0;     // part 3 starts from the element before b1 + anchor; if 0, from a0
    uint8_t changes : 4 = 0;    // part 3: elements that it makes
    uint8_t first : 4 = 0;      // bits of the first mode
};
static_assert(sizeof(step_t) == 8);

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
    // Decoding, by state << table_bits | bits
    std::array<runs_t, run_states << table_bits> runs;
    std::array<step_t, step_states << table_bits> steps;
    // By step_t::lefts: what part 1 adds to the elements of the line above
    std::array<std::array<int16_t, step_t::most_verticals>, 1 << step_t::most_verticals> lefts;

    // Encoding
    std::array<t4_code_t, 7> vertical;                   // by a1 - b1 + 3
    std::array<std::array<coded_run_t, 1729>, 2> coded;  // [white, black] by run
};

const fast_tables_t &fast_tables();

}  // namespace faxtray
