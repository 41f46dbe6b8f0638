// The codec beside libtiff: each reads what the other writes.
#include <gtest/gtest.h>

#include "support/tiff_oracle.h"

namespace faxtray {

// `count` end-of-line codes on byte boundaries, each with the tag of its coding.
static std::string ends(int df, int count)
{
    std::string codes;
    for (int i = 0; i < count; i++)
        codes += df == 1 ? std::string("\0\x18", 2) : std::string("\0\x08", 2);
    return codes;
}

static std::string without_fill(std::string bytes)
{
    bytes.erase(bytes.find_last_not_of('\0') + 1);
    return bytes;
}

// What the one-dimensional decoder makes of `page` with that many end-of-line codes after it: the first code
// of a page ends a line already, and the last line needs one.
static page_t as_read_from_mh(page_t page, int end_codes, int width = 1728)
{
    page.insert(page.begin(), white_line(width));
    if (end_codes == 0)
        page.pop_back();
    for (int i = 1; i < end_codes; i++)
        page.push_back(white_line(width));
    return page;
}

TEST(CodecOracle, ReadsPagesWithAndWithoutTheirEnd)
{
    for (const auto &[name, lines] : sample_pages(160)) {
        for (auto [df, fine] : {std::pair(0, false), {1, false}, {1, true}, {3, false}}) {
            const std::string bytes = tiff_encode(lines, df, 1728, fine);
            for (int end_codes : {0, 1, 6}) {  // after a T.6 page, which ends by itself, they are ignored
                const decoded_page_t page = decode(bytes + ends(df, end_codes), df);
                EXPECT_TRUE(page.lines == (df == 0 ? as_read_from_mh(lines, end_codes) : lines))
                    << name << ' ' << df << ' ' << end_codes;
                EXPECT_EQ(page.counts.repeated + (df == 0 ? 0 : page.counts.ended_short), 0) << name << df;
            }
        }
    }
}

TEST(CodecOracle, WritesWhatItReads)
{
    for (const auto &[name, lines] : sample_pages(160)) {
        for (int df : {0, 1, 3}) {
            for (int vr : {0, 1}) {
                const std::string bytes = encode(lines, df, vr);
                EXPECT_TRUE(tiff_decode(bytes, df, lines.size()) == lines) << name << ' ' << df << ' ' << vr;
                EXPECT_TRUE(decode(bytes, df).lines == (df == 0 ? as_read_from_mh(lines, 0) : lines))
                    << name << ' ' << df << ' ' << vr;
            }
        }
        // There is only one way to code these two.
        EXPECT_TRUE(without_fill(encode(lines, 0)) == without_fill(tiff_encode(lines, 0))) << name;
        EXPECT_TRUE(without_fill(encode(lines, 3)) == without_fill(tiff_encode(lines, 3))) << name;
    }
}

TEST(CodecOracle, TakesTheWidthItIsTold)
{
    for (int width : {1, 20, 2600}) {
        for (const auto &[name, lines] : sample_pages(40, width)) {
            EXPECT_TRUE(decode(tiff_encode(lines, 0, width), 0, width).lines ==
                        as_read_from_mh(lines, 0, width))
                << name << ' ' << width;
            for (int df : {1, 3})
                EXPECT_TRUE(decode(tiff_encode(lines, df, width), df, width).lines == lines)
                    << name << ' ' << df << ' ' << width;
        }
    }
    t4dec_set_pixel_width(1728);
}

}  // namespace faxtray
