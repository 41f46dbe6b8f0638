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

bool read_ccitt_page(fax_pages_t *fax, coded_page_t *page)
{
    if (!read_coded_page(fax, DF_MMR, page))
        return false;
    for (unsigned char &byte : page->data)
        byte = reversed_bits[byte];
    return true;
}

bool count_page_lines(fax_pages_t *fax, long *lines)
{
    std::vector<unsigned char> data;
    if (!read_fax_page(fax, &data))
        return false;
    clean_page_t clean;
    if (is_clean_page(data.data(), data.size(), fax->df, &clean)) {
        *lines = clean.lines;
        return true;
    }
    *lines = 0;
    const auto count = [](void *user, const line_changes_t &, bool) { ++*static_cast<long *>(user); };
    const bool decoded = decode_fax_page(*fax, &data, count, lines);
    *lines = std::min(*lines, most_recoded_lines);
    return decoded;
}

std::string points(long pixels, int dpi)
{
    const long hundredths = pixels * 7200 / dpi;
    char text[32];
    snprintf(text, sizeof text, "%ld.%02ld", hundredths / 100, hundredths % 100);
    return text;
}

}  // namespace faxtray
