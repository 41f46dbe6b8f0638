// How many pages a second become a document, and how much memory that takes? Data: any fax file, as
// scripts/make-faxes.sh makes them. Writes the document once, to be timed beside other programs: README.md
// has the figures.
//
//     bench_documents tiff|pdf|ps|png|preview|pbm FAX OUT       # png, preview, pbm: OUT is a prefix
#include <cstdio>
#include <cstring>

#include "disk/whole_file.h"
#include "document/pbm.h"
#include "document/pdf_writer.h"
#include "document/png_writer.h"
#include "document/postscript_writer.h"
#include "document/tiff_writer.h"

namespace faxtray {

static constexpr int preview_width = 200;

static bool write_image(const char *format, const page_image_t &page, int vertical_dpi, int fd)
{
    if (strcmp(format, "png") == 0)
        return write_png(page, vertical_dpi, fd);
    if (strcmp(format, "pbm") == 0)
        return write_pbm(page, fd);
    return write_png(scaled_preview(page, vertical_dpi, preview_width), fd);
}

static bool write_images(const char *format, fax_pages_t *fax, const std::string &prefix)
{
    std::vector<unsigned char> data;
    page_image_t page;
    for (long n = 1; n <= fax->pages; n++) {
        whole_file file;
        if (!read_fax_page(fax, &data) || !decode_page(*fax, data, &page) ||
            !file.begin(prefix + std::to_string(n) + "." + format, true) ||
            !write_image(format, page, fax->vertical_dpi, file.fd()) || !file.keep())
            return false;
    }
    return true;
}

static bool write_document(const char *format, fax_pages_t *fax, const char *to)
{
    constexpr struct {
        const char *format;
        bool (*write)(fax_pages_t *fax, page_range_t pages, int fd);
    } writers[] = {{"tiff", write_tiff}, {"pdf", write_pdf}, {"ps", write_postscript}};
    for (const auto &writer : writers) {
        whole_file file;
        if (strcmp(format, writer.format) == 0)
            return file.begin(to, true) && writer.write(fax, {}, file.fd()) && file.keep();
    }
    return write_images(format, fax, to);
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    faxtray::fax_pages_t fax;
    return argc == 4 && faxtray::open_fax_pages(argv[2], &fax) &&
                   faxtray::write_document(argv[1], &fax, argv[3])
               ? 0
               : 1;
}
