#include "codec/t4_encoder.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/capture.h"

namespace faxtray {

static std::vector<std::string> pieces;  // what get_lines gives, one a call: lines of whole bytes
static size_t piece;
static int last_result;  // of get_lines
static std::vector<uint16_t> output;
static int failure;  // of put_words

static int give_lines(const unsigned char **lines, int *count)
{
    if (piece == pieces.size())
        return last_result;
    *lines = reinterpret_cast<const unsigned char *>(pieces[piece].data());
    *count = 1;
    return static_cast<int>(pieces[piece++].size());
}

static int take_words(const uint16_t *words, int count)
{
    output.insert(output.end(), words, words + count);
    return failure ? failure : count * 2;
}

static std::string line(const std::string &drawn)
{
    std::string bytes(drawn.size() / 8, '\0');
    for (size_t i = 0; i < drawn.size(); i++)
        if (drawn[i] == 'X')
            bytes[i / 8] = static_cast<char>(bytes[i / 8] | 0x80 >> i % 8);
    return bytes;
}

static int encode_page(const std::vector<std::string> &lines, int df, int vr)
{
    pieces = lines;
    piece = 0;
    output.clear();
    return encode_g3_fax(give_lines, take_words, df, vr);
}

// Code words from "H w4 b3 V0".
static std::vector<uint16_t> code_words(const std::string &text)
{
    static const std::map<std::string, uint16_t> names = {
        {"EOL", CODE_EOL}, {"P", CODE_PASS},  {"H", CODE_HORIZONTAL}, {"V0", CODE_V0},
        {"VL1", CODE_VL1}, {"VL2", CODE_VL2}, {"VL3", CODE_VL3},      {"VR1", CODE_VR1},
        {"VR2", CODE_VR2}, {"VR3", CODE_VR3}, {"EOL+1", CODE_EOL_1D}, {"EOL+0", CODE_EOL_2D}};
    std::vector<uint16_t> words;
    std::istringstream in(text);
    for (std::string name; in >> name;)
        words.push_back(names.count(name) ? names.at(name)
                                          : static_cast<uint16_t>(std::stoi(name.substr(1)) |
                                                                  (name[0] == 'b' ? CODE_BLACK : 0)));
    return words;
}

static std::vector<uint16_t> packed(const std::string &text)
{
    const std::vector<uint16_t> words = code_words(text);
    output.clear();
    flush(words.data(), words.data() + words.size(), take_words);
    return output;
}

// The packed bits in the order they are sent.
static std::string bits(const std::string &text)
{
    std::string sent;
    for (uint16_t word : packed(text))
        for (int i = 0; i < 16; i++)
            sent += word >> i & 1 ? '1' : '0';
    return sent;
}

struct T4Encoder : testing::Test {
    T4Encoder()
    {
        failure = 0;
        last_result = -1;
        encode_page({}, 0, 0);
    }
};

TEST_F(T4Encoder, PacksCodesFromTheLeastSignificantBitOn)
{
    const std::pair<const char *, std::string> rows[] = {
        {"EOL w1728", "000000000001"
                      "010011011"
                      "00110101"
                      "000"},
        {"w29 w30", "00000010"
                    "00000011"},  // a full word and no more
        {"w8 EOL+1 w2", "10011"
                        "00000000000"
                        "0000000000011"
                        "0111" +
                            std::string(15, '0')},
        {"w8 EOL b2", "10011"
                      "000000000001"
                      "11" +
                          std::string(13, '0')},  // not aligned
        {"b2560", "000000011111"
                  "0000110111" +
                      std::string(10, '0')},
        {"w5200", "000000011111"
                  "000000011111"
                  "11011"
                  "101010" +
                      std::string(13, '0')}};
    for (const auto &[text, sent] : rows)
        EXPECT_EQ(bits(text), sent) << text;
}

TEST_F(T4Encoder, CodesDrawnLinesAgainstTheLineAbove)
{
    const std::pair<const char *, const char *> rows[] = {{"....XXX.........", "H w4 b3 V0"},
                                                          {"....XXX.........", "V0 V0 V0"},
                                                          {".....XX.........", "VR1 V0 V0"},
                                                          {"..XXXXXXX.......", "VL3 VR2 V0"},
                                                          {"................", "P V0"},
                                                          {"XXX..XXX........", "H w0 b3 H w2 b3 V0"},
                                                          {"XX....XXXXX.....", "V0 VL1 VR1 VR3 V0"},
                                                          {"..........X.X...", "P H w8 b1 H w1 b1 V0"},
                                                          {"........XXX.....", "VL2 V0 P V0"},
                                                          {"........XXXXXXXX", "V0 H b8 w0"}};
    std::vector<std::string> lines;
    std::string codes;
    for (const auto &[drawn, modes] : rows) {
        lines.push_back(line(drawn));
        codes += std::string(modes) + " ";
        EXPECT_EQ(encode_page(lines, 3, 0), 0);
        EXPECT_EQ(output, packed(codes + "EOL EOL")) << codes;
    }
}

// Short lines are filled up to 1728.
TEST_F(T4Encoder, OneLineInKIsOneDimensional)
{
    const std::vector<std::string> lines(6, line("X......."));
    std::string mh, fine, normal;
    for (int row = 0; row < 6; row++) {
        mh += "EOL w0 b1 w7 w1720 ";
        fine += row % 4 == 0 ? "EOL+1 w0 b1 w7 w1720 " : "EOL+0 V0 V0 V0 ";
        normal += row % 2 == 0 ? "EOL+1 w0 b1 w7 w1720 " : "EOL+0 V0 V0 V0 ";
    }
    EXPECT_EQ(encode_page(lines, 0, 1), 0);
    EXPECT_EQ(output, packed(mh));
    EXPECT_EQ(encode_page(lines, 1, 1), 0);
    EXPECT_EQ(output, packed(fine));
    EXPECT_EQ(encode_page(lines, 1, 0), 0);
    EXPECT_EQ(output, packed(normal));
}

TEST_F(T4Encoder, FailuresStick)
{
    const std::vector<std::string> noise(100, std::string(216, '\x55'));
    failure = -7;
    EXPECT_EQ(encode_page(noise, 0, 0), -7);
    EXPECT_EQ(piece, noise.size());
    EXPECT_LE(output.size(), 8192u) << "nothing is handed over after a failure";
    failure = 0;
    last_result = -3;
    EXPECT_EQ(encode_page(noise, 1, 0), -3);
    EXPECT_EQ(encode_page(noise, 2, 0), 1);
    capture_stdout out;
    EXPECT_EQ(encode_page({line("X......."), line("X......XX......X")}, 0, 0), 1);
    EXPECT_EQ(encode_page({line("X......."), line("X......XX......X")}, 3, 0), 1);
    EXPECT_EQ(out.text(), "encode_g3_fax: Line size changed for encoding. Can't do that!\n"
                          "enct4_MMR: Line size changed for MMR encoding. Can't do that!\n");
}

}  // namespace faxtray
