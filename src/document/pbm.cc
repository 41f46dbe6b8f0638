#include "document/pbm.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "disk/whole_file.h"
#include "util/command_output.h"
#include "util/io.h"

namespace faxtray {

bool write_pbm(const page_image_t &page, int fd)
{
    const std::string head = "P4\n" + std::to_string(page.width) + " " + std::to_string(page.height) + "\n";
    if (write_full(fd, head.data(), head.size()) && write_full(fd, page.rows.data(), page.rows.size()))
        return true;
    fprintf(stderr, "%s: can't write the bitmap: %s\n", program_invocation_short_name, strerror(errno));
    return false;
}

bool write_pbm_pages(const std::string &path, const std::string &prefix)
{
    fax_pages_t fax;
    if (!open_fax_pages(path, &fax))
        return false;
    std::vector<unsigned char> data;
    page_image_t page;
    progress_bar bar(printable(path), fax.pages, progress_bar::PAGES);
    while (fax.next <= fax.pages) {
        char number[32];
        snprintf(number, sizeof number, "-%03ld.pbm", fax.next);
        whole_file file;
        if (!read_fax_page(&fax, &data) || !decode_page(fax, data, &page) ||
            !file.begin(prefix + number, true) || !write_pbm(page, file.fd()) || !file.keep())
            return false;
        bar.add(1);
    }
    return true;
}

}  // namespace faxtray
