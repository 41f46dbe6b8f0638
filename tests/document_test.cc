// Faxes as documents: what other programs see in them is what was sent.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <png.h>

#include "codec/page_coding.h"
#include "document/pdf_writer.h"
#include "document/png_writer.h"
#include "document/postscript_writer.h"
#include "document/tiff_writer.h"
#include "support/capture.h"
#include "support/daemon.h"
#include "support/t4_notation.h"
#include "support/tiff_oracle.h"

namespace faxtray {

using write_t = bool (*)(fax_pages_t *fax, page_range_t pages, int fd);

// Writes pages of the fax file `fax` in `dir` to the file `name`.
static bool make(const temp_dir &dir, write_t write, const char *name, page_range_t pages = {})
{
    fax_pages_t fax;
    const unique_fd fd(open((dir / name).c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    return open_fax_pages(dir / "fax", &fax) && write(&fax, pages, fd.get());
}

static std::string joined(const page_t &page)
{
    std::string all;
    for (const std::string &line : page)
        all += line;
    return all;
}

struct sent_page_t {
    std::string coded;
    page_t lines;
};

// Pages with and without an end, followed by what does not belong there, damaged, and empty.
static std::vector<sent_page_t> sent_pages(int df, int vr)
{
    const page_t text = sample_pages(90)[0].lines, noise = sample_pages(30)[3].lines;
    const std::string whole = encode(text, df, vr), end = df == DF_MR ? "EOL+1 EOL+1 EOL+1" : "EOL EOL EOL";
    std::vector<sent_page_t> pages = {
        {whole, text},
        {encode(noise, df, vr) + (df == DF_MMR ? "" : t4_coded(end)), noise},
        {whole + t4_coded(df == DF_MR ? "EOL+1 EOL+1" : "EOL EOL") + "\xFF\xFF", {}},
        {whole, {}},
        {whole.substr(0, whole.size() / 2), {}},
        {"", {white_line()}}};
    pages[3].coded[whole.size() / 2] = static_cast<char>(pages[3].coded[whole.size() / 2] ^ 0x55);
    for (size_t i = 2; i < 5; i++) {
        pages[i].lines = decode(pages[i].coded + (df == DF_MH ? std::string("\0\x80", 2) : ""), df).lines;
        if (df == DF_MH)
            pages[i].lines.erase(pages[i].lines.begin());
    }
    return pages;
}

TEST(Documents, ShowEveryPixelThatWasSent)
{
    const struct {
        int df, vr;
        const char *resolution;
    } rows[] = {{DF_MH, 0, "204x98"}, {DF_MR, 0, "204x98"}, {DF_MR, 1, "204x196"}, {DF_MMR, 1, "204x196"}};
    for (const auto &row : rows) {
        temp_dir dir;
        const std::string resolution = row.resolution, x = resolution.substr(0, 3), y = resolution.substr(4);
        const std::vector<sent_page_t> pages = sent_pages(row.df, row.vr);
        std::vector<std::string> data;
        std::vector<page_t> lines;
        for (const sent_page_t &page : pages) {
            data.push_back(page.coded);
            lines.push_back(page.lines);
        }
        dir.write("fax", fax_file_of(data, row.df, "#PAGES:6\nRESOLUTION:" + std::to_string(row.vr) + "\n"));
        ASSERT_TRUE(make(dir, write_tiff, "tif") && make(dir, write_pdf, "pdf") &&
                    make(dir, write_postscript, "ps"));
        EXPECT_TRUE(tiff_pages(dir / "tif") == lines) << row.df;

        const ended_t shown = run_shell("cd " + dir.path() + " && pdftoppm -mono -rx " + x + " -ry " + y +
                                        " pdf pdf && gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=pbmraw -r" +
                                        resolution + " -sOutputFile=ps-%d.pbm ps 2>&1");
        EXPECT_EQ(shown.status, 0) << shown.output;
        for (size_t i = 0; i < lines.size(); i++) {
            const std::string n = std::to_string(i + 1), pixels = joined(lines[i]),
                              head = "P4\n1728 " + std::to_string(lines[i].size()) + "\n";
            EXPECT_TRUE(read_file(dir / ("pdf-" + n + ".pbm").c_str()) == head + pixels)
                << row.df << " pdf " << n;
            EXPECT_TRUE(read_file(dir / ("ps-" + n + ".pbm").c_str()).ends_with("\n" + pixels))
                << row.df << " ps " << n;
        }
    }
}

TEST(Documents, CopyCleanPagesOnly)
{
    const struct {
        int df;
        const char *codes;
        long lines;    // -1: not clean
        size_t bytes;  // of these up to the end of the lines
    } rows[] = {
        {DF_MH, "EOL w1728 EOL", 1, 6},
        {DF_MH, "EOL w1728 EOL w4 b1724 EOL EOL EOL EOL EOL EOL", 2, 11},
        {DF_MH, "| EOL w1728 | EOL", 1, 6},                   // fill
        {DF_MH, "EOL w1728", -1, 0},                          // the last line's end is not known
        {DF_MH, "w1728 EOL", -1, 0},                          // nor this one's beginning
        {DF_MH, "EOL w1728 EOL EOL w1728 EOL", -1, 0},        // an EOL too many
        {DF_MH, "EOL w1728 EOL w1000 EOL w1728 EOL", -1, 0},  // a short line
        {DF_MH, "EOL w1728 EOL EOL 1", -1, 0},
        {DF_MH, "EOL", -1, 0},
        {DF_MR, "EOL+1 w1728 EOL+0 V0 EOL+1 EOL+1", 2, 8},
        {DF_MR, "EOL+0 V0 EOL+1", -1, 0},
        {DF_MR, "EOL+1 w1728 EOL+1 EOL+0", -1, 0},
        {DF_MMR, "V0 H w4 b1724 EOL EOL", 2, 8},
        {DF_MMR, "V0 EOL", -1, 0},
        {DF_MMR, "V0 EOL 0 EOL", -1, 0},
        {DF_MMR, "V0 VL3 EOL EOL", -1, 0},
        {DF_MMR, "V0 EOL EOL V0", -1, 0},
        {DF_UMMR, "V0 EOL EOL", -1, 0},
    };
    for (const auto &row : rows) {
        const std::string bytes = t4_coded(row.codes);
        const std::vector<unsigned char> data(bytes.begin(), bytes.end());
        clean_page_t page = {-1, 0};
        const bool clean = is_clean_page(data.data(), data.size(), row.df, &page);
        ASSERT_EQ(clean, row.lines >= 0) << row.codes;
        if (!clean)
            continue;
        EXPECT_EQ(std::pair(page.lines, page.bytes), std::pair(row.lines, row.bytes)) << row.codes;
    }
    // A reader of the TIFF finds the bytes that were received.
    temp_dir dir;
    const std::string mh = encode(sample_pages(40)[0].lines, DF_MH) + t4_coded("EOL");
    dir.write("fax", fax_file_of({mh + t4_coded("EOL EOL EOL EOL EOL")}, DF_MH, "#PAGES:1\n"));
    EXPECT_TRUE(make(dir, write_tiff, "tif"));
    EXPECT_NE(read_file(dir / "tif").find(mh.substr(0, mh.size() - 1)), std::string::npos);
}

TEST(Documents, AreTheSameBytesForTheSameFax)
{
    temp_dir dir;
    const std::string page = encode(sample_pages(40)[0].lines, DF_MMR);
    dir.write("fax", fax_file_of({page, page}, DF_MMR, "#PAGES:2\nSENDER_FAX#:(+99) \\ Zo\xC3\xAB)\n"));
    set_mtime(dir / "fax", 1795347000);
    const scoped_env zone("TZ", "Asia/Tokyo");
    ASSERT_TRUE(make(dir, write_pdf, "1.pdf") && make(dir, write_pdf, "2.pdf"));
    EXPECT_TRUE(read_file(dir / "1.pdf") == read_file(dir / "2.pdf"));
    const std::string info = run_shell("LC_ALL=C.UTF-8 TZ=UTC pdfinfo " + dir / "1.pdf").output;
    for (const char *line :
         {"Title:           Fax from (+99) \\ Zo\xC3\xAB)\n", "Author:          (+99) \\ Zo\xC3\xAB)\n",
          "Subject:         2 pages\n", "CreationDate:    Sun Nov 22 11:30:00 2026 UTC\n",
          "Page size:       609.88 x 29.38 pts\n"})
        EXPECT_NE(info.find(line), std::string::npos) << line << info;
}

TEST(Documents, SayWhyThereIsNone)
{
    const std::string page = encode(sample_pages(9)[0].lines, DF_MMR);
    const struct {
        const char *attributes;
        int df;
        page_range_t pages;
        const char *reason;
    } rows[] = {{"#PAGES:2\n", DF_MMR, {3, 3}, "it has no page 3: it has 2"},
                {"#PAGES:2\n", DF_MMR, {2, 1}, "it has no page 1: it has 2"},
                {"#PAGES:2\n", DF_MMR, {0, 1}, "it has no page 0: it has 2"},
                {"#PAGES:4\n", DF_MMR, {4, 4}, "the file ends before page 4"},
                {"#PAGES:4\n", DF_MMR, {}, "page 3 of 4: the file ends before it"},
                {"#PAGES:0\n", DF_MMR, {}, "it has no pages"},
                {"SENDER_FAX#:1\n", DF_MMR, {}, "it has no pages"},
                {"#PAGES:70000\n", DF_MMR, {}, "it has more than 65535 pages"},
                {"#PAGES:2\n", DF_UMMR, {}, "its pages are in a coding that cannot be decoded"}};
    for (const auto &row : rows)
        for (write_t write : {write_tiff, write_pdf, write_postscript}) {
            temp_dir dir;
            dir.write("fax", fax_file_of({page, page}, row.df, row.attributes));
            capture_stderr errors;
            EXPECT_FALSE(make(dir, write, "document", row.pages)) << row.reason;
            const std::string text = errors.text();
            EXPECT_TRUE(text.ends_with("fax: " + std::string(row.reason) + "\n")) << text;
        }
    // A full disk.
    temp_dir dir;
    dir.write("fax", fax_file_of({page, page}, DF_MMR, "#PAGES:2\n"));
    for (write_t write : {write_tiff, write_pdf, write_postscript}) {
        fax_pages_t fax;
        const unique_fd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
        capture_stderr errors;
        EXPECT_FALSE(open_fax_pages(dir / "fax", &fax) && write(&fax, {}, full.get()));
        EXPECT_TRUE(errors.text().ends_with(": No space left on device\n"));
    }
}

// The pixels of a PNG file, a byte each: 0 black, 255 white.
static std::string png_pixels(const std::string &file)
{
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_TRUE(png_image_begin_read_from_memory(&image, file.data(), file.size()));
    image.format = PNG_FORMAT_GRAY;
    std::string pixels(PNG_IMAGE_SIZE(image), '\0');
    EXPECT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr));
    return pixels;
}

TEST(Documents, ShowOnePageAsAnImage)
{
    temp_dir dir;
    const page_t lines = sample_pages(98)[2].lines;
    dir.write("fax", fax_file_of({encode(lines, DF_MMR)}, DF_MMR, "#PAGES:1\nRESOLUTION:0\n"));
    fax_pages_t fax;
    std::vector<unsigned char> data;
    page_image_t page;
    ASSERT_TRUE(open_fax_pages(dir / "fax", &fax) && read_fax_page(&fax, &data) &&
                decode_page(fax, data, &page));
    const unique_fd fd(open((dir / "png").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_TRUE(write_png(page, fax.vertical_dpi, fd.get()));
    const std::string file = read_file(dir / "png");
    std::string expected;
    for (const std::string &line : lines)
        for (int x = 0; x < 1728; x++)
            expected += line[static_cast<size_t>(x / 8)] >> (7 - x % 8) & 1 ? '\0' : '\xFF';
    EXPECT_TRUE(png_pixels(file) == expected);
    EXPECT_NE(file.find(std::string("pHYs\0\0\x1F\x5F\0\0\x0F\x12\x01", 13)),
              std::string::npos);  // 8031, 3858 a metre

    // An inch is as high as wide; black stays black, white white, and half of both is grey.
    EXPECT_EQ(scaled_preview(page, 98, 204).height, 24);
    page.rows.assign(page.rows.size(), 0xAA);
    std::fill_n(page.rows.begin(), 216 * 49, 0xFF);
    for (const auto &[width, height] : {std::pair(1, 1L), {100, 12L}, {1728, 204L}, {3456, 408L}}) {
        const grey_image_t grey = scaled_preview(page, 98, width);
        ASSERT_EQ(std::pair(grey.height, grey.rows.size()),
                  std::pair(height, static_cast<size_t>(width * height)));
        EXPECT_EQ(grey.rows[0], width == 1 ? 64 : 0);
        EXPECT_NEAR(grey.rows.back(), width == 1 ? 64 : 127, width > 100 ? 128 : 10);
    }
    const unique_fd small(open((dir / "small").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    const grey_image_t grey = scaled_preview(page, 98, 100);
    ASSERT_TRUE(write_png(grey, small.get()));
    EXPECT_TRUE(png_pixels(read_file(dir / "small")) == std::string(grey.rows.begin(), grey.rows.end()));
}

}  // namespace faxtray
