// page_source: a document that is read page after page, whatever its format: what becomes a fax.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace faxtray {

// Why something could not be done with a document.
struct reason_t {
    std::string text;
    bool is_ours =
        false;  // the document may be sound: a full disk, a program that is not installed, a signal
};

// What is read at most; documents come from strangers. Checked before anything is allocated for a page.
inline constexpr long most_pixels = 20000;      // a line
inline constexpr long most_lines = 100000;      // a page
inline constexpr long most_read_pages = 10000;  // a document
inline constexpr size_t most_bytes = 256
                                     << 20;  // in memory at a time, where a format needs a whole page there

// A page as its document has it.
struct page_form_t {
    long width = 0, height = 0;   // pixels
    double x_dpi = 0, y_dpi = 0;  // pixels an inch; 0: not known
    bool grey =
        false;    // rows are a byte a pixel, 0 black and 255 white; else a bit a pixel, as in page_image_t
    int df = -1;  // DF code in which coded() returns the page; -1: it does not
};

// A document, opened. Each format has a class of its own behind it; open_document() chooses.
class page_source {
public:
    virtual ~page_source() = default;

    // Moves on to the next page. END after the last.
    enum step_t { PAGE, END, FAILED };
    virtual step_t next(page_form_t *form) = 0;

    // Passes each row of the page to `take`, from top to bottom and from left to right as people see it; the
    // bits after its last pixel are undefined. Ends early when `take` returns false. Call it once a page.
    using take_row = std::function<bool(const unsigned char *row)>;
    virtual bool rows(const take_row &take) = 0;

    // The page's own coded data, of lines of 1728 pixels, the first bit of each byte in its lowest place.
    // They may be damaged, and need not have an end-of-page code.
    virtual bool coded(std::vector<unsigned char> *data);

    // Back to before the first page.
    virtual bool rewind() = 0;

    // Why one of the functions above returned false or FAILED, for the user; "" if `take` did.
    const std::string &why() const { return why_; }

protected:
    bool refuse(std::string why);          // remembers the first reason; false
    bool is_fit(long width, long height);  // within the limits, else refuses

private:
    std::string why_;
};

// The grey of a colour, 0 black and 255 white.
inline unsigned char grey_of(unsigned red, unsigned green, unsigned blue)
{
    return static_cast<unsigned char>((red * 77 + green * 151 + blue * 28) >> 8);
}

using page_source_ptr = std::unique_ptr<page_source>;

}  // namespace faxtray
