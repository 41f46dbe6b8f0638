// A page is read only if the file holds all of it, so that a
// false length in a damaged file allocates no memory.
#include "document/fax_pages.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

#include "codec/page_coding.h"
#include "faxfile/fax_params.h"
#include "util/command_output.h"
#include "util/io.h"

namespace faxtray {

bool complain(const fax_pages_t &fax, const std::string &what)
{
    fprintf(stderr, "%s: %s: %s\n", program_invocation_short_name, printable(fax.path).c_str(), what.c_str());
    return false;
}

// A header without a resolution, or with one that is not known, counts as normal.
static int vertical_dpi_of(const fax_header_t *header)
{
    constexpr int dpi[] = {98, 196, 300, 400, 600};  // of VR code 0 and so on
    const char *resolution = get_fax_header_value(header, "RESOLUTION");
    const int vr = resolution ? asciitoVR(static_cast<signed char>(*resolution)) : -1;
    return dpi[vr >= 0 && vr < static_cast<int>(std::size(dpi)) ? vr : 0];
}

bool open_fax_pages(unique_fd fd, const std::string &name, fax_pages_t *fax)
{
    *fax = fax_pages_t();  // it may have been used for another file
    fax->path = name;
    fax->fd = std::move(fd);
    struct stat status;
    if (!fax->fd || fstat(fax->fd.get(), &status) < 0)
        return complain(*fax, strerror(errno));
    if (!S_ISREG(status.st_mode))
        return complain(*fax, "not a file");
    const stdout_on_stderr no_output;  // of the header's messages
    fax->header.reset(read_fax_header(fax->fd.get()));
    // The header's reader leaves the file at the first page.
    const off_t start = lseek(fax->fd.get(), 0, SEEK_CUR);
    if (!fax->header || start < 0)
        return complain(*fax, "not a fax file");
    fax->df = get_compression_mode(fax->header.get());
    fax->vertical_dpi = vertical_dpi_of(fax->header.get());
    const char *pages = get_fax_header_value(fax->header.get(), "#PAGES");
    fax->pages = pages ? strtol(pages, nullptr, 10) : 0;
    fax->received = status.st_mtime;
    fax->size = static_cast<size_t>(status.st_size);
    fax->left = status.st_size > start ? static_cast<size_t>(status.st_size - start) : 0;
    return true;
}

bool open_fax_pages(const std::string &path, fax_pages_t *fax)
{
    // Opening a pipe must not block.
    return open_fax_pages(unique_fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)), path, fax);
}

// Reads all of `n` bytes that the file had when it was opened.
static bool read_whole(fax_pages_t *fax, unsigned char *bytes, size_t n)
{
    fax->left -= n;
    const ssize_t got = read_full(fax->fd.get(), bytes, n);
    if (got < 0)
        return complain(*fax, strerror(errno));
    return got == static_cast<ssize_t>(n) || complain(*fax, "the file was cut while it was being read");
}

static size_t number_of(const unsigned char (&length)[4])
{
    return size_t{length[0]} << 24 | size_t{length[1]} << 16 | size_t{length[2]} << 8 | length[3];
}

// The length is compared with what is left of the file before anything is allocated for it.
bool read_fax_page(fax_pages_t *fax, std::vector<unsigned char> *data)
{
    const std::string page = "page " + std::to_string(fax->next) + " of " + std::to_string(fax->pages);
    unsigned char length[4];
    if (fax->left < sizeof length)
        return complain(*fax, (page + ": the file ends before it").c_str());
    if (!read_whole(fax, length, sizeof length))
        return false;
    const size_t n = number_of(length);
    if (fax->left < n)
        return complain(*fax, (page + ": " + std::to_string(n) + " bytes long, but the file has " +
                               std::to_string(fax->left) + " left")
                                  .c_str());
    data->resize(n);
    fax->next++;
    return read_whole(fax, data->data(), n);
}

bool skip_fax_page(fax_pages_t *fax)
{
    unsigned char length[4];
    if (fax->left < sizeof length || read_full(fax->fd.get(), length, sizeof length) != sizeof length ||
        fax->left - sizeof length < number_of(length) ||
        lseek(fax->fd.get(), static_cast<off_t>(number_of(length)), SEEK_CUR) < 0)
        return false;
    fax->left -= sizeof length + number_of(length);
    fax->next++;
    return true;
}

bool find_pages(fax_pages_t *fax, page_range_t *pages)
{
    if (fax->df != DF_MH && fax->df != DF_MR && fax->df != DF_MMR)
        return complain(*fax, "its pages are in a coding that cannot be decoded");
    if (fax->pages < 1)
        return complain(*fax, "it has no pages");
    if (fax->pages > most_document_pages)
        return complain(*fax, "it has more than " + std::to_string(most_document_pages) + " pages");
    if (pages->last == 0)
        pages->last = fax->pages;
    if (pages->first < 1 || pages->last < pages->first || pages->last > fax->pages)
        return complain(*fax, "it has no page " +
                                  std::to_string(pages->first < 1 ? pages->first : pages->last) +
                                  ": it has " + std::to_string(fax->pages));
    while (fax->next < pages->first)
        if (!skip_fax_page(fax))
            return complain(*fax, "the file ends before page " + std::to_string(pages->first));
    return true;
}

bool return_to_page(fax_pages_t *fax, const page_place_t &place)
{
    fax->next = place.next;
    fax->left = place.left;
    return lseek(fax->fd.get(), static_cast<off_t>(fax->size - fax->left), SEEK_SET) >= 0 ||
           complain(*fax, strerror(errno));
}

std::string fax_title(const fax_pages_t &fax)
{
    const char *sender = get_fax_header_value(fax.header.get(), "SENDER_FAX#");
    return sender && *sender ? std::string("Fax from ") + sender : "Fax";
}

bool decode_fax_page(const fax_pages_t &fax, std::vector<unsigned char> *data, changes_callback found,
                     void *user)
{
    const stdout_on_stderr no_output;  // of the decoder's messages
    return decode_sent_lines(data, fax.df, found, user) ||
           complain(fax, "page " + std::to_string(fax.next - 1) + " cannot be decoded");
}

page_info_t look_at_page(int df, const std::vector<unsigned char> &data)
{
    const stdout_on_stderr no_output;  // of the decoder's messages
    t4dec_set_pixel_width(1728);       // all that fax files hold
    page_info_t page = {data.size(), t4dec(data.data(), data.size(), df, {}) == 1 && !putrunlen_failed(), {}};
    if (page.decoded)
        page.counts = t4dec_counts();
    return page;
}

}  // namespace faxtray
