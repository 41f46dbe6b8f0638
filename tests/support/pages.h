// pages: bitmaps like those that faxes hold, made from a seed and always the same.
#pragma once

#include <random>

#include "../fuzz/t4_page.h"

namespace faxtray {

struct sample_page {
    const char *name;
    page_t lines;
};

// Text, rules and slants, a halftone, noise, all white, all black; `width` in pixels. Pixels after the width
// are white.
std::vector<sample_page> sample_pages(int lines, int width = 1728);

inline std::string white_line(int width = 1728)
{
    return std::string(static_cast<size_t>(width + 7) / 8, '\0');
}

// A fax file of these coded pages.
std::string fax_file_of(const std::vector<std::string> &pages, int df, const std::string &attributes);

}  // namespace faxtray
