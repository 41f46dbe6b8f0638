#include "support/tiff_oracle.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <tiffio.h>

#include <memory>

#include "util/owned.h"

namespace faxtray {

using tiff_ptr = std::unique_ptr<TIFF, deleter<TIFFClose>>;

__attribute__((format(printf, 4, 0))) static int complain(TIFF *, void *, const char *, const char *format,
                                                          va_list args)
{
    char text[200];
    vsnprintf(text, sizeof text, format, args);
    ADD_FAILURE() << "libtiff: " << text;
    return 1;
}

// The file in memory `fd` stays open when libtiff closes its own descriptor of it.
static tiff_ptr open_tiff(const unique_fd &fd, const char *mode)
{
    std::unique_ptr<TIFFOpenOptions, deleter<TIFFOpenOptionsFree>> options(TIFFOpenOptionsAlloc());
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), complain, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), complain, nullptr);
    lseek(fd.get(), 0, SEEK_SET);
    return tiff_ptr(TIFFFdOpenExt(dup(fd.get()), "page", mode, options.get()));
}

static tiff_ptr begin_page(const unique_fd &fd, int df, size_t lines, int width, bool fine)
{
    tiff_ptr tiff = open_tiff(fd, "w");
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(lines));
    TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(lines));
    TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tiff.get(), TIFFTAG_FILLORDER, FILLORDER_LSB2MSB);
    TIFFSetField(tiff.get(), TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tiff.get(), TIFFTAG_YRESOLUTION, fine ? 196.0 : 98.0);
    TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, df == 3 ? COMPRESSION_CCITTFAX4 : COMPRESSION_CCITTFAX3);
    if (df != 3)
        TIFFSetField(tiff.get(), TIFFTAG_GROUP3OPTIONS, df == 1 ? GROUP3OPT_2DENCODING : 0);
    return tiff;
}

std::string tiff_encode(const page_t &page, int df, int width, bool fine)
{
    unique_fd fd(memfd_create("page", MFD_CLOEXEC));
    tiff_ptr writer = begin_page(fd, df, page.size(), width, fine);
    std::string all;
    for (const std::string &line : page)
        all += line;
    EXPECT_GE(TIFFWriteEncodedStrip(writer.get(), 0, all.data(), static_cast<tmsize_t>(all.size())), 0);
    writer.reset();

    tiff_ptr reader = open_tiff(fd, "r");
    std::string bytes(static_cast<size_t>(TIFFRawStripSize(reader.get(), 0)), '\0');
    EXPECT_GE(TIFFReadRawStrip(reader.get(), 0, bytes.data(), static_cast<tmsize_t>(bytes.size())), 0);
    return bytes;
}

page_t tiff_decode(std::string bytes, int df, size_t lines, int width)
{
    unique_fd fd(memfd_create("page", MFD_CLOEXEC));
    tiff_ptr writer = begin_page(fd, df, lines, width, true);
    EXPECT_GE(TIFFWriteRawStrip(writer.get(), 0, bytes.data(), static_cast<tmsize_t>(bytes.size())), 0);
    writer.reset();

    tiff_ptr reader = open_tiff(fd, "r");
    page_t page(lines, white_line(width));
    for (size_t y = 0; y < lines; y++)
        EXPECT_EQ(TIFFReadScanline(reader.get(), page[y].data(), static_cast<uint32_t>(y)), 1) << y;
    return page;
}

std::vector<page_t> tiff_pages(const std::string &path)
{
    std::vector<page_t> pages;
    const unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const tiff_ptr tiff = open_tiff(fd, "r");
    do {
        uint32_t lines = 0;
        std::string line = white_line();
        TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &lines);
        page_t page;
        for (uint32_t n = 0; n < lines; n++) {
            EXPECT_EQ(TIFFReadScanline(tiff.get(), line.data(), n), 1);
            page.push_back(line);
        }
        pages.push_back(page);
    } while (TIFFReadDirectory(tiff.get()));
    return pages;
}

}  // namespace faxtray
