#include "codec/line_assembler.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "codec/t4_codes.h"

namespace faxtray {

// What the callbacks received: runs as numbers, lines drawn, a bar at each line's end.
static std::string heard;

static void hear_run(int run)
{
    heard += std::to_string(run) + " ";
}

static void hear_line(const unsigned char *line, int bytes)
{
    EXPECT_EQ(bytes, (Pix_width + 7) / 8);
    for (int i = 0; i < Pix_width; i++)
        heard += line[i / 8] & 0x80 >> i % 8 ? '#' : '.';
}

static void hear_end()
{
    heard += "|";
}

static std::string put(const std::vector<int> &runs)
{
    heard.clear();
    for (int run : runs)
        putrunlen(false, run, hear_run, hear_line, hear_end);
    return heard;
}

struct LineAssembler : testing::Test {
    LineAssembler()
    {
        t4dec_set_pixel_width(12);
        putrunlen(true, 0, nullptr, nullptr, nullptr);
    }
    ~LineAssembler() override { t4dec_set_pixel_width(1728); }
};

TEST_F(LineAssembler, DrawsRunsAndFillsUpWhite)
{
    EXPECT_EQ(put({3, -2, 7, T4_EOL}), "3 -2 7 ...##.......|");
    EXPECT_EQ(put({0, -12, T4_EOL, T4_EOL}), "0 -12 ############|12 ............|");
    t4dec_set_pixel_width(70);
    EXPECT_EQ(put({0, -64, 0, 6, T4_EOL}), "0 -64 6 " + std::string(64, '#') + "......|");
}

TEST_F(LineAssembler, RepeatsTheLastFullLineForOneTooLong)
{
    EXPECT_EQ(put({5, -8}), "5 7 ............|") << "nothing was full yet";
    EXPECT_EQ(put({T4_EOL, 4, -8, T4_EOL, 2, T4_EOL}), "4 -8 ....########|2 10 ............|");
    t4_page_counts = {};
    EXPECT_EQ(put({12, -1}), "12 ....########|") << "no run is missing";
    EXPECT_EQ(put({3, -4, 64, T4_EOL}), "") << "the EOL only ends the wait";
    EXPECT_EQ(put({T4_EOL}), "12 ............|");
    EXPECT_EQ(put({2, 64, 64}), "2 10 ....########|") << "two make-up codes in a row";
    EXPECT_EQ(put({T4_EOL, 1, T4_EOL}), "1 11 ............|");
    EXPECT_EQ(t4_page_counts.lines, 4);
    EXPECT_EQ(t4_page_counts.repeated, 2);
    EXPECT_EQ(t4_page_counts.ended_short, 1);
}

}  // namespace faxtray
