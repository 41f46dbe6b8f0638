// write_documents FAX PREFIX WIDTH: writes a fax as PREFIX.pdf, and each page N, from 1 on, as PREFIX-N.png
// and, WIDTH pixels wide, as PREFIX-N.preview.png. For tests that read these without our code.
#include <fcntl.h>

#include <cstdio>
#include <cstdlib>

#include "document/pdf_writer.h"
#include "document/png_writer.h"

namespace faxtray {

static unique_fd new_file(const std::string &path)
{
    return unique_fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
}

static bool write_pdf_of(const char *path, const std::string &prefix)
{
    fax_pages_t fax;
    return open_fax_pages(path, &fax) && write_pdf(&fax, {}, new_file(prefix + ".pdf").get());
}

static bool write_images(const char *path, const std::string &prefix, int width)
{
    fax_pages_t fax;
    page_range_t all;
    if (!open_fax_pages(path, &fax) || !find_pages(&fax, &all))
        return false;
    while (fax.next <= all.last) {
        const std::string name = prefix + "-" + std::to_string(fax.next);
        std::vector<unsigned char> data;
        page_image_t page;
        if (!read_fax_page(&fax, &data) || !decode_page(fax, data, &page) ||
            !write_png(page, fax.vertical_dpi, new_file(name + ".png").get()) ||
            !write_png(scaled_preview(page, fax.vertical_dpi, width), new_file(name + ".preview.png").get()))
            return false;
    }
    return true;
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    if (argc != 4) {
        fprintf(stderr, "usage: write_documents FAX PREFIX WIDTH\n");
        return 2;
    }
    const bool pdf = faxtray::write_pdf_of(argv[1], argv[2]);
    return faxtray::write_images(argv[1], argv[2], atoi(argv[3])) && pdf ? 0 : 1;
}
