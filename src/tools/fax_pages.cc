// A page is read only if the file holds all of it, so that a
// false length in a damaged file allocates no memory.
#include "tools/fax_pages.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "faxfile/fax_params.h"
#include "util/command_output.h"
#include "util/io.h"

namespace faxtray {

// Returns false, so that a caller can return its result.
static bool complain(const fax_pages_t &fax, const char *what)
{
    fprintf(stderr, "faxconv: %s: %s\n", printable(fax.path).c_str(), what);
    return false;
}

bool open_fax_pages(const std::string &path, fax_pages_t *fax)
{
    *fax = fax_pages_t();  // it may have been used for another file
    fax->path = path;
    fax->fd.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));  // opening a pipe must not block
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
    const char *pages = get_fax_header_value(fax->header.get(), "#PAGES");
    fax->pages = pages ? strtol(pages, nullptr, 10) : 0;
    fax->left = status.st_size > start ? static_cast<size_t>(status.st_size - start) : 0;
    return true;
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

page_info_t look_at_page(int df, const std::vector<unsigned char> &data)
{
    const stdout_on_stderr no_output;  // of the decoder's messages
    t4dec_set_pixel_width(1728);       // all that fax files hold
    page_info_t page = {data.size(), t4dec(data.data(), data.size(), df, {}) == 1, {}};
    if (page.decoded)
        page.counts = t4dec_counts();
    return page;
}

// A page that was not decoded has no counts to print.
static void print_page(long number, const page_info_t &page)
{
    printf("%4ld  %8zu", number, page.bytes);
    if (page.decoded)
        printf("  %6ld  %8ld  %5ld\n", page.counts.lines, page.counts.repeated, page.counts.ended_short);
    else
        printf("  %6s  %8s  %5s\n", "-", "-", "-");
}

static nlohmann::json to_json(const page_info_t &page)
{
    nlohmann::json object = {{"bytes", page.bytes}};
    if (page.decoded)
        object.update({{"lines", page.counts.lines},
                       {"repeated", page.counts.repeated},
                       {"ended_short", page.counts.ended_short}});
    return object;
}

// Prints the header's attributes, the codes among them with their meaning, and the heads of the columns.
static void print_header(const fax_pages_t &fax)
{
    for (const fax_header_t *node = fax.header.get(); node; node = node->next) {
        printf("%s: %s", printable(node->name).c_str(), printable(node->value).c_str());
        if (strcmp(node->name, "RESOLUTION") == 0)
            printf(" (%s)", VRtostring(asciitoVR(static_cast<signed char>(node->value[0]))));
        putchar('\n');
    }
    printf("coding: %s\n\n%4s  %8s  %6s  %8s  %5s\n", DFtostring(fax.df), "PAGE", "BYTES", "LINES",
           "REPEATED", "SHORT");
}

bool print_fax_info(const std::string &path, bool json)
{
    fax_pages_t fax;
    if (!open_fax_pages(path, &fax))
        return false;

    // Text is printed as it comes, page by page; JSON is collected and printed last, so that it is complete
    // even for a damaged file.
    nlohmann::json object = {{"file", path},
                             {"header", nlohmann::json::object()},
                             {"coding", DFtostring(fax.df)},
                             {"pages", nlohmann::json::array()}};
    for (const fax_header_t *node = fax.header.get(); node; node = node->next)
        object["header"][node->name] = node->value;
    if (!json)
        print_header(fax);

    // A page that cannot be decoded does not keep the others from
    // being printed; one that is cut off is the last.
    bool whole = true, decoded = true;
    std::vector<unsigned char> data;
    progress_bar bar(printable(path), fax.pages, progress_bar::PAGES);
    while (fax.next <= fax.pages && (whole = read_fax_page(&fax, &data))) {
        const page_info_t page = look_at_page(fax.df, data);
        if (json) {
            object["pages"].push_back(to_json(page));
            bar.add(1);
        } else {
            print_page(fax.next - 1, page);
        }
        decoded = decoded && page.decoded;
    }
    if (!decoded)
        complain(fax, "there are pages that cannot be decoded");
    if (whole && fax.left > 0 && !json)
        printf("and %zu bytes after the last page\n", fax.left);
    if (json) {
        object["whole"] = whole;
        print_json(object);
    }
    return whole && decoded;
}

}  // namespace faxtray
