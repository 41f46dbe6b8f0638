#include "codec/t4_encoder.h"

#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/pages.h"
#include "support/t4_notation.h"

namespace faxtray {

static std::string line(const std::string &drawn)
{
    std::string bytes = white_line(static_cast<int>(drawn.size()));
    for (size_t i = 0; i < drawn.size(); i++)
        if (drawn[i] == '#')
            bytes[i / 8] = static_cast<char>(bytes[i / 8] | 0x80 >> i % 8);
    return bytes;
}

TEST(T4Encoder, PacksCodesFromTheLeastSignificantBitOn)
{
    const struct {
        std::vector<uint16_t> words;
        const char *sent;
    } rows[] = {{{CODE_EOL, 1728}, "000000000001 010011011 00110101 |"},
                {{29, 30}, "00000010 00000011"},  // a full word and no more
                {{8, CODE_EOL_1D, 2}, "10011 00000000000 0000000000011 0111 |"},
                {{8, CODE_EOL, CODE_BLACK | 2}, "10011 000000000001 11 |"},  // not aligned
                {{CODE_BLACK | 2560}, "000000011111 0000110111 |"},
                {{2624}, "000000011111 11011 00110101 |"},
                {{5200}, "000000011111 000000011111 11011 101010 |"}};
    encode(page_t(), 0);  // the packer is empty now, and without failure
    for (const auto &[words, sent] : rows) {
        std::string bytes;
        coded = &bytes;
        flush(words.data(), words.data() + words.size(), collect_words);
        EXPECT_EQ(bytes, t4_coded(sent)) << sent;
    }
}

TEST(T4Encoder, CodesDrawnLinesAgainstTheLineAbove)
{
    const std::pair<const char *, const char *> rows[] = {{"....###.........", "H w4 b3 V0"},
                                                          {"....###.........", "V0 V0 V0"},
                                                          {".....##.........", "VR1 V0 V0"},
                                                          {"..#######.......", "VL3 VR2 V0"},
                                                          {"................", "P V0"},
                                                          {"###..###........", "H w0 b3 H w2 b3 V0"},
                                                          {"##....#####.....", "V0 VL1 VR1 VR3 V0"},
                                                          {"..........#.#...", "P H w8 b1 H w1 b1 V0"},
                                                          {"........###.....", "VL2 V0 P V0"},
                                                          {"........########", "V0 H b8 w0"}};
    page_t lines;
    std::string codes;
    for (const auto &[drawn, modes] : rows) {
        lines.push_back(line(drawn));
        codes += std::string(modes) + " ";
        EXPECT_EQ(encode(lines, 3), t4_coded(codes + "EOL EOL |")) << codes;
    }
}

// Short lines are filled up to 1728.
TEST(T4Encoder, OneLineInKIsOneDimensional)
{
    const page_t lines(6, line("#......."));
    const std::string codes = "w0 b1 w7 w1720 ", one = "| EOL+1 " + codes, two = "| EOL+0 V0 V0 V0 ";
    std::string mh;
    for (size_t row = 0; row < lines.size(); row++)
        mh += "EOL " + codes;
    EXPECT_EQ(encode(lines, 0), t4_coded(mh + "|"));
    EXPECT_EQ(encode(lines, 1, 1), t4_coded(one + two + two + two + one + two + "|")) << "fine";
    EXPECT_EQ(encode(lines, 1, 0), t4_coded(one + two + one + two + one + two + "|")) << "normal";
}

static int asked;  // how often lines were asked for

// A hundred lines, then a failure.
static int give_noise(const unsigned char **lines, int *count)
{
    static const std::string noise(216, '\x55');
    *lines = reinterpret_cast<const unsigned char *>(noise.data());
    *count = 1;
    return asked++ < 100 ? 216 : -3;
}

static int give_uneven(const unsigned char **lines, int *count)
{
    give_noise(lines, count);
    return asked < 3 ? asked : -1;
}

TEST(T4Encoder, FailuresStick)
{
    static int words = 0;
    auto take = [](const uint16_t *, int count) { return count * 2; };
    auto refuse = [](const uint16_t *, int count) {
        words += count;
        return -7;
    };
    for (auto encode_page : {encode_g3_fax, encode_by_words}) {
        asked = words = 0;
        EXPECT_EQ(encode_page(give_noise, refuse, 0, 0), -7);
        EXPECT_EQ(asked, 101);
        EXPECT_LE(words, 8192) << "nothing is handed over after a failure";
    }
    asked = 0;
    EXPECT_EQ(encode_g3_fax(give_noise, take, 1, 0), -3);
    EXPECT_EQ(encode_g3_fax(give_noise, take, 2, 0), 1);
    capture_stdout out;
    for (int df : {0, 3}) {
        asked = 0;
        EXPECT_EQ(encode_g3_fax(give_uneven, take, df, 0), 1);
    }
    auto give_long = [](const unsigned char **, int *) { return 4000; };  // no run word holds its pixels
    EXPECT_EQ(encode_g3_fax(give_long, take, 3, 0), 1);
    EXPECT_EQ(out.text(), "encode_g3_fax: Line size changed for encoding. Can't do that!\n"
                          "enct4_MMR: Line size changed for MMR encoding. Can't do that!\n"
                          "enct4_MMR: Lines of 4000 bytes are too long\n");
}

}  // namespace faxtray
