// Every output pixel is the mean of the input that it covers, in both directions of scaling: input rows are
// scaled in width, then added to the output rows that they reach into.
#include "document/page_fitter.h"

#include <algorithm>
#include <cmath>

#include "codec/line_changes.h"

namespace faxtray {

static constexpr double fax_x_dpi = 204, fax_y_dpi[] = {98, 196};  // by VR code

// Half of a hairline of twice our resolution shall still be seen.
static constexpr double bit_threshold = 0.4;
// Grey closer than this to black or white is paper or ink, and makes no dots in its neighbourhood.
static constexpr double plain_grey = 0.08;

// Whether scanners and fax machines mean the same by both resolutions.
static bool is_near(double dpi, double wanted)
{
    return std::abs(dpi - wanted) < 0.05 * wanted;
}

static double factor(double dpi, double wanted)
{
    return dpi < 1 || is_near(dpi, wanted) ? 1 : wanted / dpi;
}

int natural_vr(const page_form_t &form)
{
    return is_near(form.x_dpi, fax_x_dpi) && is_near(form.y_dpi, fax_y_dpi[0]) ? 0 : 1;
}

page_fit_t fit_page(const page_form_t &form, int vr)
{
    const auto width = static_cast<double>(form.width), height = static_cast<double>(form.height);
    double x = factor(form.x_dpi, fax_x_dpi), y = factor(form.y_dpi, fax_y_dpi[vr]);
    const double smaller = std::min(1.0, changes_width / (width * x));
    x *= smaller;
    y *= smaller;
    page_fit_t fit = {std::clamp(std::lround(width * x), 1L, long{changes_width}),
                      std::max(1L, std::lround(height * y)), 0, x != 1 || y != 1};
    fit.left = (changes_width - fit.width) / 2 / 8 * 8;
    return fit;
}

page_fitter::page_fitter(const page_form_t &form, const page_fit_t &fit) : form_(form), fit_(fit)
{
    image_.width = changes_width;
    if (!fit.scaled && !form.grey)
        return;
    const auto width = static_cast<size_t>(fit.width);
    ink_.resize(static_cast<size_t>(form.width) + 1);
    across_.resize(width);
    sum_.resize(width);
    error_.resize(width + 2);  // with a pixel at either end that nobody sees
    next_.resize(width + 2);
}

// Appends a white row to the image. Returns where the page's first pixel lies in it.
static unsigned char *new_row(page_image_t &image, long left)
{
    image.rows.resize(image.rows.size() + changes_line_bytes);
    image.height++;
    return &image.rows[image.rows.size() - changes_line_bytes + static_cast<size_t>(left / 8)];
}

void page_fitter::take(const unsigned char *row)
{
    if (fit_.scaled || form_.grey) {
        scale_row(row);
        return;
    }
    const auto bytes = static_cast<size_t>((form_.width + 7) / 8);
    unsigned char *to = new_row(image_, fit_.left);
    std::copy(row, row + bytes, to);
    if (form_.width % 8)
        to[bytes - 1] = static_cast<unsigned char>(to[bytes - 1] & 0xff00 >> form_.width % 8);
}

// Adds the row to the output rows that it reaches into.
void page_fitter::scale_row(const unsigned char *row)
{
    for (size_t x = 0; x < static_cast<size_t>(form_.width); x++)
        ink_[x + 1] = ink_[x] + (form_.grey ? (255 - row[x]) / 255.0 : row[x / 8] >> (7 - x % 8) & 1);
    // What lies under an output pixel is the difference of the ink to the left of its two edges.
    const double step = static_cast<double>(form_.width) / static_cast<double>(fit_.width);
    double before = 0;
    for (size_t x = 0; x < across_.size(); x++) {
        const double edge = std::min(static_cast<double>(x + 1) * step, static_cast<double>(form_.width));
        const auto pixel = std::min(static_cast<size_t>(edge), static_cast<size_t>(form_.width) - 1);
        const double here =
            ink_[pixel] + (edge - static_cast<double>(pixel)) * (ink_[pixel + 1] - ink_[pixel]);
        across_[x] = (here - before) / step;
        before = here;
    }
    // The row covers these output rows, counted from 0; whole ones are finished on the way.
    const double scale = static_cast<double>(fit_.height) / static_cast<double>(form_.height);
    double top = static_cast<double>(taken_++) * scale;
    const double bottom = taken_ == form_.height ? static_cast<double>(fit_.height) : top + scale;
    while (image_.height < fit_.height && top < bottom) {
        const double end = std::min(bottom, static_cast<double>(image_.height + 1));
        for (size_t x = 0; x < sum_.size(); x++)
            sum_[x] += across_[x] * (end - top);
        // Rounding must not leave a sliver of a row, and with it the row, to the next one.
        if (end > static_cast<double>(image_.height + 1) - 1e-6)
            put_row();
        top = end;
    }
}

// Makes the output row black and white, for grey by the error diffusion of Floyd and Steinberg.
void page_fitter::put_row()
{
    unsigned char *to = new_row(image_, fit_.left);
    for (size_t x = 0; x < sum_.size(); x++) {
        const double ink = sum_[x];
        bool black = ink >= bit_threshold;
        if (form_.grey) {
            const bool plain = ink < plain_grey || ink > 1 - plain_grey;
            black = (plain ? ink : ink + error_[x + 1]) >= 0.5;
            const double rest = plain ? 0 : (ink + error_[x + 1] - (black ? 1 : 0)) / 16;
            error_[x + 2] += 7 * rest;
            next_[x] += 3 * rest;
            next_[x + 1] += 5 * rest;
            next_[x + 2] += rest;
        }
        if (black)
            to[x / 8] = static_cast<unsigned char>(to[x / 8] | 0x80 >> x % 8);
    }
    std::fill(sum_.begin(), sum_.end(), 0);
    error_.swap(next_);
    std::fill(next_.begin(), next_.end(), 0);
}

}  // namespace faxtray
