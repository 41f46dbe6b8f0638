// libpng reports errors by longjmp: between setjmp and the end of write_image() nothing has a destructor.
#include "document/png_writer.h"

#include <png.h>

#include <cerrno>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstring>

#include "util/io.h"

namespace faxtray {

namespace {

// What both kinds of image have in common.
struct png_image_t {
    int width;
    long height;
    int bit_depth;     // 1: 1 is black; 8: 0 is black
    int vertical_dpi;  // 0: square pixels of no particular size
    const unsigned char *rows;
    size_t row_bytes;
};

}  // namespace

[[noreturn]] static void report(png_structp png, const char *what)
{
    fprintf(stderr, "%s: can't write the image: %s\n", program_invocation_short_name, what);
    png_longjmp(png, 1);
}

static void ignore(png_structp, const char *) {}

static void write_bytes(png_structp png, unsigned char *bytes, size_t n)
{
    if (!write_full(*static_cast<const int *>(png_get_io_ptr(png)), bytes, n))
        png_error(png, strerror(errno));
}

static void flush_nothing(png_structp) {}

static void write_rows(png_structp png, png_infop info, const png_image_t &image)
{
    constexpr double inches_a_metre = 1 / 0.0254;
    png_set_IHDR(png, info, static_cast<png_uint_32>(image.width), static_cast<png_uint_32>(image.height),
                 image.bit_depth, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (image.vertical_dpi > 0)
        png_set_pHYs(png, info, std::lround(horizontal_dpi * inches_a_metre),
                     std::lround(image.vertical_dpi * inches_a_metre), PNG_RESOLUTION_METER);
    png_write_info(png, info);
    if (image.bit_depth == 1)
        png_set_invert_mono(png);
    for (long y = 0; y < image.height; y++)
        png_write_row(png, image.rows + static_cast<size_t>(y) * image.row_bytes);
    png_write_end(png, nullptr);
}

static bool write_image(const png_image_t &image, int fd)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, report, ignore);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        fprintf(stderr, "%s: can't write the image: %s\n", program_invocation_short_name, strerror(ENOMEM));
        return false;
    }
    const bool failed = setjmp(png_jmpbuf(png)) != 0;
    if (!failed) {
        png_set_write_fn(png, &fd, write_bytes, flush_nothing);
        write_rows(png, info, image);
    }
    png_destroy_write_struct(&png, &info);
    return !failed;
}

bool write_png(const page_image_t &page, int vertical_dpi, int fd)
{
    return write_image({page.width, page.height, 1, vertical_dpi, page.rows.data(), page.row_bytes()}, fd);
}

bool write_png(const grey_image_t &image, int fd)
{
    return write_image({image.width, image.height, 8, 0, image.rows.data(), static_cast<size_t>(image.width)},
                       fd);
}

}  // namespace faxtray
