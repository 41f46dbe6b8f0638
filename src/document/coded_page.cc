#include "document/coded_page.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "codec/page_coding.h"
#include "faxfile/fax_params.h"
#include "util/command_output.h"

namespace faxtray {

bool read_coded_page(fax_pages_t *fax, int df, coded_page_t *page)
{
    std::vector<unsigned char> data;
    if (!read_fax_page(fax, &data))
        return false;
    clean_page_t clean;
    page->copied = fax->df == df && is_clean_page(data.data(), data.size(), df, &clean);
    if (page->copied) {
        data.resize(clean.bytes);
        page->data = std::move(data);
        page->lines = clean.lines;
        return true;
    }
    const stdout_on_stderr no_output;  // of the decoder's messages
    const int vr = fax->vertical_dpi == 196;
    if (!recode_in_memory(&data, fax->df, df, vr, &page->data, &page->lines))
        return complain(*fax, "page " + std::to_string(fax->next - 1) + " cannot be decoded");
    page->counts = data.empty() ? t4_page_counts_t() : t4dec_counts();
    return true;
}

static constexpr std::array<unsigned char, 256> reversed_bits = [] {
    std::array<unsigned char, 256> table = {};
    for (unsigned byte = 0; byte < 256; byte++)
        for (unsigned bit = 0; bit < 8; bit++)
            table[byte] |= static_cast<unsigned char>((byte >> bit & 1) << (7 - bit));
    return table;
}();

static void reverse_bits(std::vector<unsigned char> *data)
{
    for (unsigned char &byte : *data)
        byte = reversed_bits[byte];
}

bool read_ccitt_page(fax_pages_t *fax, coded_page_t *page)
{
    if (!read_coded_page(fax, DF_MMR, page))
        return false;
    reverse_bits(&page->data);
    return true;
}

bool outline_page(fax_pages_t *fax, page_outline_t *outline)
{
    std::vector<unsigned char> data;
    if (!read_fax_page(fax, &data))
        return false;
    clean_page_t clean;
    if (is_clean_page(data.data(), data.size(), fax->df, &clean)) {
        *outline = {clean.lines, fax->df == DF_MMR ? clean.bytes : 0};
        return true;
    }
    *outline = {0, 0};
    const auto count = [](void *user, const line_changes_t &, bool) { ++*static_cast<long *>(user); };
    const bool decoded = decode_fax_page(*fax, &data, count, &outline->lines);
    outline->lines = std::min(outline->lines, most_recoded_lines);
    return decoded;
}

bool read_outlined_page(fax_pages_t *fax, const page_outline_t &outline, coded_page_t *page)
{
    if (outline.copied == 0)
        return read_ccitt_page(fax, page);
    if (!read_fax_page(fax, &page->data))
        return false;
    page->data.resize(std::min(page->data.size(), outline.copied));
    reverse_bits(&page->data);
    page->lines = outline.lines;
    page->copied = true;
    return true;
}

std::string points(long pixels, int dpi)
{
    const long hundredths = pixels * 7200 / dpi;
    char text[32];
    snprintf(text, sizeof text, "%ld.%02ld", hundredths / 100, hundredths % 100);
    return text;
}

}  // namespace faxtray
