#include "codec/t4_decoder.h"

#include <gtest/gtest.h>

#include "../fuzz/t4_page.h"
#include "support/t4_notation.h"

namespace faxtray {

struct row_t {
    const char *codes;
    std::string lines;
    int repeated = 0, ended_short = 0;
};

// Lines of 16 pixels, a bar at each line's end.
static std::string drawn(const decoded_page_t &page)
{
    std::string lines;
    int pixels = 0;
    for (int event : page.events)
        if (event == decoded_page_t::LINE_END)
            lines += '|';
        else if (event != decoded_page_t::LINE)
            pixels += abs(event);
        else {
            const std::string &line = page.lines[lines.size() / 17];
            EXPECT_EQ(std::exchange(pixels, 0), 16) << "runs make up every line, damaged or not";
            for (size_t i = 0; i < 16; i++)
                lines += line.at(i / 8) & 0x80 >> i % 8 ? '#' : '.';
        }
    return lines;
}

static void expect_pages(int df, const std::vector<row_t> &rows)
{
    for (const row_t &row : rows) {
        const std::string data = t4_coded(row.codes);
        const decoded_page_t page = decode(data, df, 16, true);
        EXPECT_EQ(page.result, df != 1 || !data.empty());
        EXPECT_EQ(drawn(page), row.lines) << row.codes;
        EXPECT_EQ(page.counts.lines, static_cast<long>(page.lines.size())) << row.codes;
        EXPECT_EQ(page.counts.repeated, row.repeated) << row.codes;
        EXPECT_EQ(page.counts.ended_short, row.ended_short) << row.codes;
    }
    t4dec_set_pixel_width(1728);
}

static const std::string white = "................|", bar = "....###.........|", half = "....############|";

TEST(T4Decoder, PassesOnOneDimensionalLinesAtTheNextEOL)
{
    expect_pages(0, {{"w4 b3 w9", ""},
                     {"10 EOL w4 b3 w9 0000 EOL w4 b12", white + bar},
                     {"EOL w4 b3 w9 EOL w4 b12 w1 b3 EOL w4 b12 EOL", white + bar + bar + half, 1},
                     {"EOL w4 b3 000000001 w9 EOL w4 b12 EOL", white + bar + half, 0, 1}});
}

TEST(T4Decoder, EndsTwoDimensionalLinesAtAnEOLOrTheEnd)
{
    expect_pages(
        1, {{"", ""},
            {"w4 b3 V0", ""},
            {"EOL+1 w4 b3 w9 EOL+0 V0 V0 V0 0000 EOL+1", bar + bar},
            {"EOL+1 w4 b3 w9 EOL+1 EOL+1 EOL+0 EOL+1 w16 EOL+0 V0", bar + white + white},
            {"EOL+1 w4 b12 EOL+1 EOL+1 EOL+0 EOL+1 EOL+1 EOL+1 w16 EOL+1", half},
            {"EOL+1 w4 b12 EOL+1 EOL+1 EOL+0 EOL+1 EOL+1 w16 EOL+1", half + white},
            {"EOL+1 w4 b3 EOL+1 w16 EOL+0 H w4 b3", bar + white + bar, 0, 2},
            {"EOL+0 H w4 b3 EOL+0 P V0 EOL+0 H w4 b12 EOL+0 V0 P EOL+0", bar + white + half + half, 0, 1}});
}

TEST(T4Decoder, ConcealsDamageOfTwoDimensionalLines)
{
    expect_pages(1, {{"EOL+1 w4 b12 EOL+0 V0 VR1 V0 V0 EOL+0 V0 V0 EOL+0", half + half + half, 1},
                     {"EOL+1 w4 b3 w9 EOL+0 V0 VR3 H w10 b1 EOL+0 V0 V0 V0", bar + bar + bar, 1},
                     {"EOL+1 w4 b12 EOL+0 H w15 b0 VL3 EOL+1 w16 EOL+1", half + half + white, 1},
                     {"EOL+1 w4 b3 000000001 b4 w9 EOL+1 w16 EOL+1", bar + white, 0, 1},
                     {"EOL+1 w4 b3 w9 EOL+0 0000001 V0 00000001 V0 V0 EOL+1", bar + bar}});
}

TEST(T4Decoder, EndsT6LinesWhereTheyAreFull)
{
    expect_pages(3, {{"", white},
                     {"EOL EOL", white},
                     {"0000 EOL EOL V0", white},
                     {"V0 V0", white + white},
                     {"H w4 b3 V0 V0 V0 V0 00 EOL EOL V0", bar + bar},
                     {"H w4 b3 V0 EOL V0 V0 V0 EOL EOL", bar + bar},
                     {"H w4 b12 V0", half + white, 0, 1},
                     {"H w4 b3 V0 V0 V0 VR1 V0 V0 EOL V0 V0 V0 EOL EOL", bar + bar, 1},
                     {"H w4 b3 V0 H w4 000000001 V0 V0 EOL EOL V0", bar + white, 0, 1}});
}

}  // namespace faxtray
