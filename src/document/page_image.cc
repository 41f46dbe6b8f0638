// A pixel of a preview is the mean of the whole pixels of the page that lie under it: which these are is
// rounded to pixels, so that counting set bits is enough.
#include "document/page_image.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "codec/line_changes.h"

namespace faxtray {

static void append_row(void *user, const line_changes_t &line, bool /*same*/)
{
    page_image_t *page = static_cast<page_image_t *>(user);
    unsigned char bitmap[changes_bitmap_size];
    if (page->height == most_rows)
        return;
    draw_changes(line, bitmap);
    page->rows.insert(page->rows.end(), bitmap, bitmap + changes_line_bytes);
    page->height++;
}

bool decode_page(const fax_pages_t &fax, std::vector<unsigned char> data, page_image_t *page)
{
    *page = {changes_width, 0, {}};
    return decode_fax_page(fax, &data, append_row, page);
}

long square_height(long rows, int vertical_dpi)
{
    return std::max(std::lround(static_cast<double>(rows) * horizontal_dpi / vertical_dpi), 1L);
}

page_image_t with_square_pixels(const page_image_t &page, int vertical_dpi)
{
    page_image_t square = {page.width, square_height(page.height, vertical_dpi), {}};
    square.rows.reserve(static_cast<size_t>(square.height) * square.row_bytes());
    for (long y = 0; y < square.height; y++) {
        const unsigned char *row = page.row(y * page.height / square.height);
        square.rows.insert(square.rows.end(), row, row + square.row_bytes());
    }
    return square;
}

namespace {

// Pixels, or rows, of a page from `begin` to before `end`: at least one.
struct span_t {
    long begin, end;
    long length() const { return end - begin; }
};

}  // namespace

// What lies under pixel `n` when `of` pixels are scaled to `count`.
static span_t under(long n, long count, long of)
{
    const long begin = n * of / count;
    return {begin, std::max((n + 1) * of / count, begin + 1)};
}

// How many pixels of the span are black.
static long black_pixels(const unsigned char *row, const span_t &span)
{
    const long first = span.begin / 8, last = (span.end - 1) / 8;
    long black = 0;
    for (long at = first; at <= last; at++) {
        unsigned mask = 0xFF;
        if (at == first)
            mask &= 0xFFu >> span.begin % 8;
        if (at == last)
            mask &= 0xFFu << (7 - (span.end - 1) % 8);
        black += std::popcount(row[at] & mask);
    }
    return black;
}

grey_image_t scaled_preview(const page_image_t &page, int vertical_dpi, int width)
{
    const double scale = static_cast<double>(width) / page.width * horizontal_dpi / vertical_dpi;
    grey_image_t grey;
    grey.width = width;
    grey.height = std::max(std::lround(static_cast<double>(page.height) * scale), 1L);
    grey.rows.reserve(static_cast<size_t>(width) * static_cast<size_t>(grey.height));
    std::vector<span_t> columns;
    for (int x = 0; x < width; x++)
        columns.push_back(under(x, width, page.width));

    std::vector<long> black(columns.size());
    for (long y = 0; y < grey.height; y++) {
        const span_t rows = under(y, grey.height, page.height);
        std::fill(black.begin(), black.end(), 0);
        for (long row = rows.begin; row < rows.end; row++)
            for (size_t x = 0; x < columns.size(); x++)
                black[x] += black_pixels(page.row(row), columns[x]);
        for (size_t x = 0; x < columns.size(); x++)
            grey.rows.push_back(
                static_cast<unsigned char>(255 - 255 * black[x] / (rows.length() * columns[x].length())));
    }
    return grey;
}

}  // namespace faxtray
