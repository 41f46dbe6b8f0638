#include "document/postscript_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "document/coded_page.h"
#include "util/io.h"
#include "util/standard_options.h"

namespace faxtray {

static constexpr size_t line_length = 76;  // of coded data, in characters

// Appends `data` as the filter ASCII85Decode reads them: five digits to the base of 85 for four bytes, "z"
// for four zeros, fewer digits for fewer bytes at the end, then "~>".
static void append_ascii85(const std::vector<unsigned char> &data, std::string *text)
{
    size_t line_start = text->size();
    for (size_t at = 0; at < data.size(); at += 4) {
        const size_t bytes = std::min<size_t>(data.size() - at, 4);
        uint32_t group = 0;
        for (size_t i = 0; i < 4; i++)
            group = group << 8 | (i < bytes ? data[at + i] : 0);
        char digits[5];
        const bool zeros = group == 0 && bytes == 4;
        for (int i = 4; i >= 0; i--, group /= 85)
            digits[i] = static_cast<char>('!' + group % 85);
        // A line that began with "%" could pass for a comment.
        if (text->size() - line_start >= line_length || at == 0) {
            *text += at == 0 ? "" : "\n";
            line_start = text->size();
            *text += digits[0] == '%' ? " " : "";
        }
        *text += zeros ? "z" : std::string(digits, bytes + 1);
    }
    *text += "~>\n";
}

// The text for a comment: printable ASCII, and no longer than a line may be.
static std::string comment_text(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return text.substr(0, 200);
}

// Before the first page: what readers of the structure want to know, and a procedure that draws a page.
static std::string beginning(const fax_pages_t &fax, const page_range_t &pages)
{
    return "%!PS-Adobe-3.0\n"
           "%%Title: " +
           comment_text(fax_title(fax)) + "\n%%Creator: " + version_text("faxtray") +
           "\n"
           "%%LanguageLevel: 2\n"
           "%%DocumentData: Clean7Bit\n"
           "%%BoundingBox: (atend)\n"
           "%%Pages: " +
           std::to_string(pages.last - pages.first + 1) + R"(
%%EndComments
%%BeginProlog
% WIDTH HEIGHT LINES faxpage: a page of that size in points, whose coded lines follow
/faxpage {
    /lines exch def /height exch def /width exch def
    << /PageSize [width height] >> setpagedevice
    /saved save def
    width height 0.02 sub scale % a rounding must not push the image beyond the page
    /DeviceGray setcolorspace
    /coded currentfile /ASCII85Decode filter def
    << /ImageType 1 /Width 1728 /Height lines /BitsPerComponent 1 /Decode [0 1]
       /ImageMatrix [1728 0 0 lines neg 0 lines]
       /DataSource coded << /K -1 /Columns 1728 /Rows lines >> /CCITTFaxDecode filter >>
    image coded flushfile
    saved restore showpage
} bind def
%%EndProlog
)";
}

static std::string page_text(const coded_page_t &page, long number, const std::string &width,
                             const std::string &height)
{
    const std::string n = std::to_string(number);
    std::string text = "%%Page: " + n + " " + n + "\n" + width + " " + height + " " +
                       std::to_string(page.lines) + " faxpage\n";
    append_ascii85(page.data, &text);
    return text;
}

static bool write_text(const fax_pages_t &fax, const std::string &text, int fd)
{
    return write_full(fd, text.data(), text.size()) ||
           complain(fax, std::string("can't write the PostScript: ") + strerror(errno));
}

bool write_postscript(fax_pages_t *fax, page_range_t pages, int fd)
{
    if (!find_pages(fax, &pages) || !write_text(*fax, beginning(*fax, pages), fd))
        return false;
    const std::string width = points(changes_width, horizontal_dpi);
    long longest = 0;  // page, in lines
    coded_page_t page;
    for (long number = 1; fax->next <= pages.last; number++) {
        if (!read_ccitt_page(fax, &page))
            return false;
        longest = std::max(longest, page.lines);
        if (!write_text(*fax, page_text(page, number, width, points(page.lines, fax->vertical_dpi)), fd))
            return false;
    }
    const long height = longest * 72 / fax->vertical_dpi + 1;  // the box is of whole points
    return write_text(*fax, "%%Trailer\n%%BoundingBox: 0 0 610 " + std::to_string(height) + "\n%%EOF\n", fd);
}

}  // namespace faxtray
