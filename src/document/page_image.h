// page_image: one page as a bitmap, and its preview.
#pragma once

#include <cstddef>
#include <vector>

#include "document/fax_pages.h"

namespace faxtray {

// A bitmap. Each row is row_bytes() bytes, the leftmost pixel in the highest bit of the first; 1 is black.
// The bits after the last pixel of a row are 0.
struct page_image_t {
    int width = 0;    // pixels
    long height = 0;  // rows
    std::vector<unsigned char> rows;

    size_t row_bytes() const { return (static_cast<size_t>(width) + 7) / 8; }
    const unsigned char *row(long n) const { return rows.data() + static_cast<size_t>(n) * row_bytes(); }
};

inline constexpr long most_rows = 1000000;  // of an image: a page of up to 130 m

// Decodes `data`, the page of `fax` that was read last: its lines as they were sent, damage concealed. A page
// without lines becomes one white row; rows beyond most_rows are dropped. False with a message on standard
// error.
bool decode_page(const fax_pages_t &fax, std::vector<unsigned char> data, page_image_t *page);

// Rows of a page of `rows` rows, vertical_dpi to an inch, whose pixels are made as high as they are wide.
long square_height(long rows, int vertical_dpi);

// The page, whose rows lie vertical_dpi to an inch, with rows repeated until its pixels are as high as they
// are wide. As long as there are no more rows to an inch than pixels, each row is there at least once.
page_image_t with_square_pixels(const page_image_t &page, int vertical_dpi);

// A grey image, one byte a pixel, 0 black and 255 white; pixels are as wide as they are high.
struct grey_image_t {
    int width = 0;
    long height = 0;
    std::vector<unsigned char> rows;
};

// The page, whose rows lie vertical_dpi to an inch, scaled to `width` (at least 1), each pixel the mean of
// what lies under it. `width` may be larger than the page's.
grey_image_t scaled_preview(const page_image_t &page, int vertical_dpi, int width);

}  // namespace faxtray
