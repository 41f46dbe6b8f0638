#include "support/pages.h"

#include <functional>

namespace faxtray {

// The page whose black pixels are those for which `black(x, y)` is true.
static page_t drawn(int lines, int width, const std::function<bool(int, int)> &black)
{
    page_t page;
    for (int y = 0; y < lines; y++) {
        page.push_back(white_line(width));
        for (int x = 0; x < width; x++) {
            if (black(x, y))
                page.back()[static_cast<size_t>(x / 8)] |= static_cast<char>(0x80 >> x % 8);
        }
    }
    return page;
}

std::vector<sample_page> sample_pages(int lines, int width)
{
    std::mt19937 random(1728);
    std::vector<uint64_t> glyphs(64), slopes(40);
    for (auto *table : {&glyphs, &slopes}) {
        for (uint64_t &entry : *table)
            entry = uint64_t{random()} << 32 | random();
    }
    auto text = [&](int x, int y) {  // cells of 24 by 32 pixels, strokes of 3 by 4, blanks between
        const uint64_t glyph = glyphs[static_cast<size_t>((x / 24 * 7 + y / 32 * 31 + x / 240) % 64)];
        return x % 24 < 18 && y % 32 < 24 && x / 24 % 7 != 0 && (glyph >> (x % 24 / 3 + y % 32 / 4 * 6) & 1);
    };
    auto rules = [&](int x, int y) {  // a form, and slants of up to four pixels a line both ways
        for (size_t i = 0; i < slopes.size(); i++) {
            const int at = static_cast<int>(i) * 45 + (static_cast<int>(slopes[i] % 9) - 4) * (y % 40);
            if (x >= at && x < at + 1 + static_cast<int>(slopes[i] >> 8) % 9)
                return true;
        }
        return y % 50 < 2;
    };
    auto halftone = [&](int x, int y) {  // ordered dither of a ramp
        static constexpr int order[16] = {0, 8, 2, 10, 12, 4, 14, 6, 3, 11, 1, 9, 15, 7, 13, 5};
        return order[x % 4 + y % 4 * 4] * width < 16 * (x + y);
    };
    auto noise = [&](int, int) { return (random() >> 16 & 3) == 0; };
    return {{"text", drawn(lines, width, text)},
            {"rules", drawn(lines, width, rules)},
            {"halftone", drawn(lines, width, halftone)},
            {"noise", drawn(lines, width, noise)},
            {"white", drawn(lines, width, [](int, int) { return false; })},
            {"black", drawn(lines, width, [](int, int) { return true; })}};
}

static std::string big_endian(size_t n)
{
    return {static_cast<char>(n >> 24), static_cast<char>(n >> 16), static_cast<char>(n >> 8),
            static_cast<char>(n)};
}

std::string fax_file_of(const std::vector<std::string> &pages, int df, const std::string &attributes)
{
    const std::string text = attributes + "COMPRESSION:" + std::to_string(df) + "\n\x1D";
    std::string file = "\xBA\xDB\xAD\x16" + big_endian(text.size()) + text;
    for (const std::string &page : pages)
        file += big_endian(page.size()) + page;
    return file;
}

}  // namespace faxtray
