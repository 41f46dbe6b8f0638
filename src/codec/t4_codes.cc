// The codes as ITU-T T.4 and T.6 print them, the bit sent first at the left. The compiler derives everything
// else from these rows.
#include "codec/t4_codes.h"

#include <string_view>

namespace faxtray {

using std::string_view;

namespace {

struct run_row_t {
    int run;
    string_view white, black;
};

struct mode_row_t {
    int mode;
    string_view code;
};

}  // namespace

static constexpr run_row_t both(int run, string_view code)
{
    return {run, code, code};
}

// ITU-T T.4 section 4.1.2
static constexpr string_view eol_code = "000000000001";

// ITU-T T.4 section 4.1.1, in the order of the encoder's tables
static constexpr run_row_t run_rows[] = {
    // Table 2: terminating codes
    {0, "00110101", "0000110111"},
    {1, "000111", "010"},
    {2, "0111", "11"},
    {3, "1000", "10"},
    {4, "1011", "011"},
    {5, "1100", "0011"},
    {6, "1110", "0010"},
    {7, "1111", "00011"},
    {8, "10011", "000101"},
    {9, "10100", "000100"},
    {10, "00111", "0000100"},
    {11, "01000", "0000101"},
    {12, "001000", "0000111"},
    {13, "000011", "00000100"},
    {14, "110100", "00000111"},
    {15, "110101", "000011000"},
    {16, "101010", "0000010111"},
    {17, "101011", "0000011000"},
    {18, "0100111", "0000001000"},
    {19, "0001100", "00001100111"},
    {20, "0001000", "00001101000"},
    {21, "0010111", "00001101100"},
    {22, "0000011", "00000110111"},
    {23, "0000100", "00000101000"},
    {24, "0101000", "00000010111"},
    {25, "0101011", "00000011000"},
    {26, "0010011", "000011001010"},
    {27, "0100100", "000011001011"},
    {28, "0011000", "000011001100"},
    {29, "00000010", "000011001101"},
    {30, "00000011", "000001101000"},
    {31, "00011010", "000001101001"},
    {32, "00011011", "000001101010"},
    {33, "00010010", "000001101011"},
    {34, "00010011", "000011010010"},
    {35, "00010100", "000011010011"},
    {36, "00010101", "000011010100"},
    {37, "00010110", "000011010101"},
    {38, "00010111", "000011010110"},
    {39, "00101000", "000011010111"},
    {40, "00101001", "000001101100"},
    {41, "00101010", "000001101101"},
    {42, "00101011", "000011011010"},
    {43, "00101100", "000011011011"},
    {44, "00101101", "000001010100"},
    {45, "00000100", "000001010101"},
    {46, "00000101", "000001010110"},
    {47, "00001010", "000001010111"},
    {48, "00001011", "000001100100"},
    {49, "01010010", "000001100101"},
    {50, "01010011", "000001010010"},
    {51, "01010100", "000001010011"},
    {52, "01010101", "000000100100"},
    {53, "00100100", "000000110111"},
    {54, "00100101", "000000111000"},
    {55, "01011000", "000000100111"},
    {56, "01011001", "000000101000"},
    {57, "01011010", "000001011000"},
    {58, "01011011", "000001011001"},
    {59, "01001010", "000000101011"},
    {60, "01001011", "000000101100"},
    {61, "00110010", "000001011010"},
    {62, "00110011", "000001100110"},
    {63, "00110100", "000001100111"},
    // Table 3a: make-up codes
    {64, "11011", "0000001111"},
    {128, "10010", "000011001000"},
    {192, "010111", "000011001001"},
    {256, "0110111", "000001011011"},
    {320, "00110110", "000000110011"},
    {384, "00110111", "000000110100"},
    {448, "01100100", "000000110101"},
    {512, "01100101", "0000001101100"},
    {576, "01101000", "0000001101101"},
    {640, "01100111", "0000001001010"},
    {704, "011001100", "0000001001011"},
    {768, "011001101", "0000001001100"},
    {832, "011010010", "0000001001101"},
    {896, "011010011", "0000001110010"},
    {960, "011010100", "0000001110011"},
    {1024, "011010101", "0000001110100"},
    {1088, "011010110", "0000001110101"},
    {1152, "011010111", "0000001110110"},
    {1216, "011011000", "0000001110111"},
    {1280, "011011001", "0000001010010"},
    {1344, "011011010", "0000001010011"},
    {1408, "011011011", "0000001010100"},
    {1472, "010011000", "0000001010101"},
    {1536, "010011001", "0000001011010"},
    {1600, "010011010", "0000001011011"},
    {1664, "011000", "0000001100100"},
    {1728, "010011011", "0000001100101"},
    // Table 3b: make-up codes for both colours
    both(1792, "00000001000"),
    both(1856, "00000001100"),
    both(1920, "00000001101"),
    both(1984, "000000010010"),
    both(2048, "000000010011"),
    both(2112, "000000010100"),
    both(2176, "000000010101"),
    both(2240, "000000010110"),
    both(2304, "000000010111"),
    both(2368, "000000011100"),
    both(2432, "000000011101"),
    both(2496, "000000011110"),
    both(2560, "000000011111"),
    // End of line
    both(T4_EOL, eol_code),
};

// ITU-T T.4 table 4, T.6 table 1
static constexpr mode_row_t mode_rows[] = {
    {T4_PASS, "0001"},
    {T4_HORIZONTAL, "001"},
    {T4_V0, "1"},
    {T4_VL1, "010"},
    {T4_VL2, "000010"},
    {T4_VL3, "0000010"},
    {T4_VR1, "011"},
    {T4_VR2, "000011"},
    {T4_VR3, "0000011"},
    {T4_TAG_1D, "0000000000011"},
    {T4_TAG_2D, "0000000000010"},
};

// The encoder's tables

static constexpr t4_code_t to_code(string_view bits)
{
    t4_code_t code = {0, static_cast<uint16_t>(bits.size())};
    for (size_t i = 0; i < bits.size(); i++)
        if (bits[i] == '1')
            code.bits = static_cast<uint16_t>(code.bits | 1 << i);
    return code;
}

static constexpr auto to_run_codes(string_view run_row_t::*colour)
{
    std::array<t4_code_t, EncTabSize> codes{};
    for (size_t i = 0; i < codes.size(); i++)
        codes[i] = to_code(run_rows[i].*colour);
    return codes;
}

static constexpr auto to_mode_codes()
{
    std::array<t4_code_t, std::size(mode_rows)> codes{};
    for (size_t i = 0; i < codes.size(); i++)
        codes[i] = to_code(mode_rows[i].code);
    return codes;
}

constexpr std::array<t4_code_t, EncTabSize> encwhite = to_run_codes(&run_row_t::white);
constexpr std::array<t4_code_t, EncTabSize> encblack = to_run_codes(&run_row_t::black);
constexpr std::array<t4_code_t, 11> enc2D = to_mode_codes();

// The decoding trees

namespace {

struct forest_t {
    t4_node_t white[run_tree_size], black[run_tree_size], eol[eoltree_size], dec2d[dec2d_tree_size];
};

extern forest_t forest;  // declared early: the nodes that are computed link to their addresses in it

// A tree under construction, its links as indices. Node 0 is the root, so a link of 0 means none.
template <int Size> struct seedling_t {
    struct {
        int next[2];
        int value;
    } nodes[Size] = {};
    int used = 1;

    // Adds the code's path and sets its leaf's value.
    constexpr void plant(string_view code, int value)
    {
        int at = 0;
        for (char bit : code) {
            nodes[at].value = T4_INNER;
            int &link = nodes[at].next[bit == '1'];
            at = link ? link : (link = used++);
        }
        nodes[at].value = value;
    }

    // The node that the code, or the beginning of one, leads to.
    constexpr int find(string_view code) const
    {
        int at = 0;
        for (char bit : code)
            at = nodes[at].next[bit == '1'];
        return at;
    }
};

}  // namespace

// Fills `tree`, whose address will be `place`, from a seedling of its size. Inner links that are missing lead
// to `unknown`; leaves get theirs from link_leaf.
template <int Size> static constexpr void unfold(const seedling_t<Size> &from, t4_node_t (&tree)[Size],
                                                 const t4_node_t *place, const t4_node_t *unknown)
{
    if (from.used != Size)
        throw "the tree has not the nodes it should have";  // ends the compilation
    for (int at = 0; at < Size; at++) {
        tree[at].value = from.nodes[at].value;
        for (int bit : {0, 1})
            if (int link = from.nodes[at].next[bit])
                tree[at].next[bit] = place + link;
            else if (tree[at].value == T4_INNER)
                tree[at].next[bit] = unknown;
    }
    int zeros = from.find(eol_code.substr(0, 11));
    tree[zeros].next[0] = place + zeros;  // fill
}

// Makes a leaf double as the next tree's root.
static constexpr void link_leaf(t4_node_t &leaf, const t4_node_t &next_root)
{
    for (int bit : {0, 1})
        leaf.next[bit] = next_root.next[bit];
}

static constexpr seedling_t<dec2d_tree_size> plant_modes()
{
    seedling_t<dec2d_tree_size> modes;
    for (const mode_row_t &row : mode_rows)
        modes.plant(row.code, row.mode);
    return modes;
}

static constexpr forest_t grow_forest()
{
    seedling_t<run_tree_size> white, black;
    for (const run_row_t &row : run_rows) {
        white.plant(row.white, row.run);
        black.plant(row.black, row.run == T4_EOL ? T4_EOL : -row.run);
    }
    seedling_t<eoltree_size> eol;
    eol.plant(eol_code, T4_EOL);
    const seedling_t<dec2d_tree_size> dec2d = plant_modes();

    forest_t grown{};
    // Bits that begin no run code mean that the line is lost: look for the next EOL.
    unfold(white, grown.white, forest.white, forest.eol);
    unfold(black, grown.black, forest.black, forest.eol);
    unfold(eol, grown.eol, forest.eol, forest.eol);
    unfold(dec2d, grown.dec2d, forest.dec2d, forest.dec2d);

    // Which tree follows which symbol.
    for (t4_node_t &node : grown.white)
        if (node.value != T4_INNER)
            link_leaf(node, node.value < 64 ? grown.black[0] : grown.white[0]);
    for (t4_node_t &node : grown.black)
        if (node.value != T4_INNER)
            link_leaf(node, node.value <= -64 ? grown.black[0] : grown.white[0]);
    for (t4_node_t &node : grown.eol)
        if (node.value != T4_INNER)
            link_leaf(node, grown.white[0]);
    for (t4_node_t &node : grown.dec2d)
        if (node.value != T4_INNER)
            link_leaf(node, node.value == T4_TAG_1D ? grown.white[0] : grown.dec2d[0]);
    return grown;
}

namespace {
constinit forest_t forest = grow_forest();
}

const t4_node_t *const whitetree = forest.white;
const t4_node_t *const blacktree = forest.black;
const t4_node_t *const eoltree = forest.eol;
const t4_node_t *const dec2d_tree = forest.dec2d;

t4_node_t *const dec2d_tag_node = forest.dec2d + plant_modes().find(eol_code);

}  // namespace faxtray
