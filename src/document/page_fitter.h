// page_fitter: makes any page one as a fax has it: 1728 black or white pixels a line, 204 to an inch, 98 or
// 196 lines to an inch.
#pragma once

#include "document/page_image.h"
#include "document/page_source.h"

namespace faxtray {

// How a page lies on a fax page.
struct page_fit_t {
    long width, height;  // pixels it becomes
    long left;           // white pixels to its left, a multiple of 8
    bool scaled;
};

// Sizes are kept by the page's resolution: what is 1 inch wide becomes 204 pixels. 200 dpi count as 204, and
// 200 or 204 lines an inch as 196. A page whose resolution is not known keeps its pixels. What is too wide
// then is made smaller as a whole; what is narrower is put in the middle, to the byte.
page_fit_t fit_page(const page_form_t &form, int vr);

// The VR code that suits the page: 0 (98 lines an inch) only if it has about that many itself.
int natural_vr(const page_form_t &form);

// Makes one page, row by row; memory grows with the rows that the fax page gets.
class page_fitter {
public:
    // `fit` is that of `form`, its height at most most_lines.
    page_fitter(const page_form_t &form, const page_fit_t &fit);

    // The next row of the page, as page_source::rows() passes it on. Scaled or grey pixels become black or
    // white by what they cover: bits by a threshold, grey by error diffusion, which leaves alone what is
    // almost white or black anyway.
    void take(const unsigned char *row);

    // After form.height rows.
    page_image_t &image() { return image_; }

private:
    void scale_row(const unsigned char *row);
    void put_row();

    const page_form_t form_;
    const page_fit_t fit_;
    page_image_t image_;
    long taken_ = 0;                    // rows
    std::vector<double> ink_;           // of a row: how much there is to the left of each pixel
    std::vector<double> across_, sum_;  // a row scaled in width; the output row so far, 0 white to 1 black
    std::vector<double> error_, next_;  // diffused to the output row and to the one after it
};

}  // namespace faxtray
