#include "codec/t4_decoder.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "codec/t4_codes.h"

namespace faxtray {

static constexpr int width = 16;

static std::string sent(t4_code_t code)
{
    std::string bits;
    for (int i = 0; i < code.length; i++)
        bits += code.bits >> i & 1 ? '1' : '0';
    return bits;
}

// Bytes of "H w4 b3 V0 0001": modes, EOLs, runs of less than 64, and bits as they stand.
static std::string coded(const std::string &text)
{
    static const std::map<std::string, t4_code_t> names = {
        {"EOL", encwhite[104]}, {"P", enc2D[0]},   {"H", enc2D[1]},     {"V0", enc2D[2]},
        {"VL1", enc2D[3]},      {"VL2", enc2D[4]}, {"VL3", enc2D[5]},   {"VR1", enc2D[6]},
        {"VR2", enc2D[7]},      {"VR3", enc2D[8]}, {"EOL+1", enc2D[9]}, {"EOL+0", enc2D[10]}};
    std::string bits, bytes;
    std::istringstream in(text);
    for (std::string name; in >> name;)
        if (names.count(name))
            bits += sent(names.at(name));
        else if (name[0] == 'w' || name[0] == 'b')
            bits += sent((name[0] == 'w' ? encwhite : encblack)[std::stoul(name.substr(1))]);
        else
            bits += name;
    bytes.resize((bits.size() + 7) / 8);
    for (size_t i = 0; i < bits.size(); i++)
        if (bits[i] == '1')
            bytes[i / 8] = static_cast<char>(bytes[i / 8] | 1 << i % 8);
    return bytes;
}

static std::string drawn;
static int pixels, lines;  // of all runs so far; passed on

static void draw_line(const unsigned char *line, int bytes)
{
    EXPECT_EQ(bytes, width / 8);
    EXPECT_EQ(pixels, ++lines * width) << "runs make up every line, damaged or not";
    for (int i = 0; i < width; i++)
        drawn += line[i / 8] & 0x80 >> i % 8 ? 'X' : '.';
}

struct page_t {
    const char *codes;
    std::string lines;
    int repeated = 0, ended_short = 0;
};

static void expect_pages(int df, const std::vector<page_t> &pages)
{
    t4dec_set_pixel_width(width);
    for (const page_t &page : pages) {
        const std::string data = coded(page.codes);
        drawn.clear();
        pixels = lines = 0;
        t4_callbacks_t callbacks = {[](int run) { pixels += abs(run); }, draw_line, [] { drawn += '|'; }};
        EXPECT_EQ(t4dec(reinterpret_cast<const unsigned char *>(data.data()), data.size(), df, callbacks),
                  df != 1 || !data.empty());
        EXPECT_EQ(drawn, page.lines) << page.codes;
        EXPECT_EQ(t4dec_counts().lines, lines) << page.codes;
        EXPECT_EQ(t4dec_counts().repeated, page.repeated) << page.codes;
        EXPECT_EQ(t4dec_counts().ended_short, page.ended_short) << page.codes;
    }
    t4dec_set_pixel_width(1728);
}

static const std::string white = "................|", bar = "....XXX.........|", half = "....XXXXXXXXXXXX|";

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
                     {"H w4 b3 V0 V0 V0 VR1 V0 V0 EOL EOL", bar + bar, 1},
                     {"H w4 b3 V0 H w4 000000001 V0 V0 EOL EOL V0", bar + white, 0, 1}});
}

}  // namespace faxtray
