// t4_codes: the run codes of ITU-T T.4 and the mode codes of T.4 and T.6, as printed there, and the encoder's
// tables and the decoding trees that are derived from them.
#pragma once

#include <array>
#include <cstdint>

namespace faxtray {

inline constexpr int EncTabSize = 105;  // terminating codes 0..63, make-up codes 64..2560, EOL

// One code; the bit sent first is the least significant.
struct t4_code_t {
    uint16_t bits;
    uint16_t length;  // in bits
};

// Rows 0 to 63: runs 0 to 63. Row 63 + n: a run of 64 * n, up to 2560. Row 104: EOL.
extern const std::array<t4_code_t, EncTabSize> encwhite;
extern const std::array<t4_code_t, EncTabSize> encblack;

// Pass, horizontal, V0, VL1, VL2, VL3, VR1, VR2, VR3, EOL + 1, EOL + 0.
extern const std::array<t4_code_t, 11> enc2D;

// The values of the trees' nodes besides runs, which are 0..2560 (white) and 0..-2560 (black).
enum : int { T4_INNER = 12000, T4_EOL = 9999 };
enum : int {  // leaves of dec2d_tree
    T4_PASS = 0,
    T4_HORIZONTAL = 1,
    T4_V0 = 2,
    T4_VL1 = 3,
    T4_VL2 = 4,
    T4_VL3 = 5,
    T4_VR1 = 6,
    T4_VR2 = 7,
    T4_VR3 = 8,
    T4_TAG_1D = 9,   // EOL followed by tag 1
    T4_TAG_2D = 10,  // EOL followed by tag 0
};

// A node of a decoding tree: follow the link of the next bit, from a root to begin with.
struct t4_node_t {
    const t4_node_t *next[2];  // on bit 0, on bit 1; never null
    int value;                 // T4_INNER, or what the leaf means
};

// The roots. The links of a leaf are those of the root of the next symbol's tree, so that a walk continues
// without choosing a tree: after a terminating code that of the other colour, after a make-up code that of
// the same, after EOL whitetree, after a mode dec2d_tree. In every tree, zeros beyond eleven stay at their
// node: they are fill before an EOL. Bits that begin no code lead from the run trees to the root of eoltree,
// which finds the next EOL, and from dec2d_tree to its own root.
inline constexpr int run_tree_size = 213, eoltree_size = 13, dec2d_tree_size = 27;
extern const t4_node_t *const whitetree;
extern const t4_node_t *const blacktree;
extern const t4_node_t *const eoltree;
extern const t4_node_t *const dec2d_tree;

// The node of dec2d_tree that an EOL leads to; the next bit is the tag. T.6 has no tags, so its decoder makes
// this node a leaf (T4_TAG_2D) while it runs.
extern t4_node_t *const dec2d_tag_node;

}  // namespace faxtray
