#include "codec/t4_codes.h"

#include <gtest/gtest.h>

namespace faxtray {

// The node that a code's bits lead to; null if there is a leaf before the last of them.
static const t4_node_t *follow(const t4_node_t *node, t4_code_t code)
{
    for (int i = 0; i < code.length; i++) {
        if (i > 0 && node->value != T4_INNER)
            return nullptr;
        node = node->next[code.bits >> i & 1];
    }
    return node;
}

static bool leads_to(const t4_node_t *leaf, const t4_node_t *root)
{
    return leaf->next[0] == root->next[0] && leaf->next[1] == root->next[1];
}

// As every row leads to a leaf of its own, no code begins another.
TEST(T4Codes, TheTreesReadWhatTheEncoderWrites)
{
    for (int row = 0; row < EncTabSize; row++) {
        const int run = row < 64 ? row : 64 * (row - 63);
        const t4_node_t *white = follow(whitetree, encwhite[row]), *black = follow(blacktree, encblack[row]);
        ASSERT_TRUE(white && black) << row;
        EXPECT_EQ(white->value, row == 104 ? T4_EOL : run);
        EXPECT_EQ(black->value, row == 104 ? T4_EOL : -run);
        EXPECT_TRUE(leads_to(white, row < 64 ? blacktree : whitetree)) << row;
        EXPECT_TRUE(leads_to(black, row < 64 || row == 104 ? whitetree : blacktree)) << row;
    }
    for (int mode = T4_PASS; mode <= T4_TAG_2D; mode++) {
        const t4_node_t *leaf = follow(dec2d_tree, enc2D[mode]);
        ASSERT_TRUE(leaf) << mode;
        EXPECT_EQ(leaf->value, mode);
        EXPECT_TRUE(leads_to(leaf, mode == T4_TAG_1D ? whitetree : dec2d_tree)) << mode;
    }
    EXPECT_EQ(follow(dec2d_tree, encwhite[104]), dec2d_tag_node);
    EXPECT_EQ(follow(eoltree, encwhite[104])->value, T4_EOL);
}

// Zeros beyond eleven are fill in every tree; with too few, a 1 after them is no code.
TEST(T4Codes, FillIsPassedOverAndUnknownCodesLeadOn)
{
    for (const t4_node_t *root : {whitetree, blacktree, eoltree, dec2d_tree}) {
        const t4_node_t *filled = follow(root, {0, 11});
        EXPECT_EQ(filled->next[0], filled);
        EXPECT_EQ(filled->next[1], follow(root, encwhite[104]));
        EXPECT_EQ(follow(root, {1 << 10, 11}), root == dec2d_tree ? dec2d_tree : eoltree);
    }
}

}  // namespace faxtray
