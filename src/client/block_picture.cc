// Colours are those of ECMA-48 (SGR 30 to 37, 40 to 47) with the extensions that all terminals of today know.
#include "client/block_picture.h"

#include <algorithm>
#include <array>

namespace faxtray {

// Contrast. The darkest and the lightest hundredth of the pixels become black and white, and what is between
// is spread; a page of nearly one shade stays as it is.
static std::array<unsigned char, 256> stretched_shades(const grey_image_t &image)
{
    std::array<size_t, 256> count = {};
    for (const unsigned char shade : image.rows)
        count[shade]++;
    const size_t hundredth = image.rows.size() / 100;
    int dark = 0, light = 255;
    for (size_t n = count[0]; n <= hundredth && dark < 255; n += count[++dark])
        ;
    for (size_t n = count[255]; n <= hundredth && light > 0; n += count[--light])
        ;
    std::array<unsigned char, 256> shades;
    const bool even = light - dark < 32;
    for (int i = 0; i < 256; i++)
        shades[i] = even ? i : std::clamp((i - dark) * 255 / (light - dark), 0, 255);
    return shades;
}

// The parameter of SGR for a shade; of the ground, or else of the character.
static std::string colour(unsigned char shade, bool ground, const block_style_t &style)
{
    if (!style.many_shades) {
        static constexpr int four[] = {30, 90, 37, 97};  // black, dark grey, light grey, white
        return std::to_string(four[(shade * 3 + 127) / 255] + (ground ? 10 : 0));
    }
    // 24 greys are in a row from 232 on; black and white are corners of the colour cube, which begins at 16.
    const int level = (shade * 25 + 127) / 255;
    return (ground ? "48;5;" : "38;5;") + std::to_string(level == 0 ? 16 : level == 25 ? 231 : 231 + level);
}

namespace {

struct cell_t {
    const char *character;
    unsigned char front, ground;
};

}  // namespace

// The character is the darker part, as ink is: a picture copied without its colours is still one.
static cell_t cell_of(unsigned char upper, unsigned char lower, bool half_blocks)
{
    static constexpr char upper_half[] = "\u2580", lower_half[] = "\u2584", whole[] = "\u2588";
    if (!half_blocks || upper == lower)
        return {half_blocks && upper < 128 ? whole : " ", upper, upper};
    return upper < lower ? cell_t{upper_half, upper, lower} : cell_t{lower_half, lower, upper};
}

std::string block_picture(const grey_image_t &image, const block_style_t &style)
{
    const std::array<unsigned char, 256> shades = stretched_shades(image);
    const size_t width = static_cast<size_t>(image.width);
    auto shade_at = [&](long y, size_t x) {
        return y < image.height ? shades[image.rows[static_cast<size_t>(y) * width + x]] : shades[255];
    };
    std::string text;
    for (long y = 0; y < image.height; y += 2) {
        std::string now;  // the colours in force
        for (size_t x = 0; x < width; x++) {
            unsigned char upper = shade_at(y, x), lower = shade_at(y + 1, x);
            if (!style.half_blocks)
                upper = lower = static_cast<unsigned char>((upper + lower) / 2);
            const cell_t cell = cell_of(upper, lower, style.half_blocks);
            const std::string wanted =
                "\x1b[" + colour(cell.front, false, style) + ";" + colour(cell.ground, true, style) + "m";
            if (wanted != now)
                text += wanted;
            now = wanted;
            text += cell.character;
        }
        text += "\x1b[0m\n";
    }
    return text;
}

}  // namespace faxtray
