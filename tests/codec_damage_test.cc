// Pages that the line cut short or garbled: decoding ends, and the lines before the damage are whole.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/pages.h"

namespace faxtray {

// Every line has its length, and there is at most one for each bit.
static void expect_lines(const decoded_page_t &page, size_t bytes)
{
    EXPECT_EQ(page.result, 1);
    EXPECT_LE(page.lines.size(), bytes * 8 + 1);
    EXPECT_TRUE(std::all_of(page.lines.begin(), page.lines.end(),
                            [](const std::string &line) { return line.size() == 216; }));
    EXPECT_EQ(page.counts.lines, static_cast<long>(page.lines.size()));
}

// How many lines two pages share at their beginning, and how many of the others at their end.
static size_t lines_shared(const page_t &a, const page_t &b)
{
    const auto first = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin();
    const auto last = std::mismatch(a.rbegin(), a.rend() - first, b.rbegin(), b.rend() - first).first;
    return static_cast<size_t>(first + (last - a.rbegin()));
}

class CodecDamage : public testing::TestWithParam<int> {
protected:
    // About 60 lines of every sample, coded; of those that do not compress, a few.
    std::vector<std::string> small_pages()
    {
        std::vector<std::string> pages;
        for (auto [name, lines] : sample_pages(60)) {
            if (encode(lines, GetParam()).size() > 5000)
                lines.resize(6);
            pages.push_back(encode(lines, GetParam()));
        }
        return pages;
    }

    // A page cut after `n` bytes yields the lines of the whole page, but for the one that is cut.
    void cut(const std::string &bytes, const page_t &whole, size_t n)
    {
        decoded_page_t page = decode(bytes.substr(0, n), GetParam());
        expect_lines(page, n);
        if (GetParam() != 0 && !page.lines.empty())
            page.lines.pop_back();
        EXPECT_TRUE(page.lines.size() <= whole.size() &&
                    std::equal(page.lines.begin(), page.lines.end(), whole.begin()))
            << n;
    }
};

TEST_P(CodecDamage, KeepsTheLinesBeforeACut)
{
    for (const std::string &bytes : small_pages()) {
        const page_t whole = decode(bytes, GetParam()).lines;
        for (size_t n = GetParam() == 1; n < bytes.size(); n++)  // MR takes no empty page
            cut(bytes, whole, n);
    }
}

TEST_P(CodecDamage, CostsFewLinesWhereLinesStandAlone)
{
    // A flipped bit costs the line, another one if an end of line was hit, in MR those up to the next of one
    // dimension, and in MMR all that follow.
    const size_t costs[] = {2, 8, 0, 60}, cost = costs[GetParam()];
    std::mt19937 random(11);
    for (const std::string &bytes : small_pages()) {
        const page_t whole = decode(bytes, GetParam()).lines;
        for (int i = 0; i < 500; i++) {
            std::string damaged = bytes;
            const size_t bit = random() % (bytes.size() * 8);
            damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
            const decoded_page_t page = decode(damaged, GetParam());
            expect_lines(page, damaged.size());
            EXPECT_GE(lines_shared(page.lines, whole) + cost, whole.size()) << bit;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Codings, CodecDamage, testing::Values(0, 1, 3));

}  // namespace faxtray
