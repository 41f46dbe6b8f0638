// fax_pages: reads the pages of a fax file one after another.
#pragma once

#include <ctime>
#include <string>
#include <vector>

#include "codec/t4_decoder.h"
#include "faxfile/fax_header.h"
#include "util/owned.h"

namespace faxtray {

inline constexpr int horizontal_dpi = 204;  // of every fax: 1728 pixels in 8.47 inches

// A fax file being read.
struct fax_pages_t {
    std::string path;  // as messages name it
    unique_fd fd;
    fax_header_ptr header;
    int df = -1;            // DF code of its pages; -1 if the header's character is no code
    int vertical_dpi = 98;  // lines an inch; 98 if the header does not say
    long pages = 0;         // as the header's "#PAGES" says; 0 without one
    time_t received = 0;    // the file's mtime; a caller who knows better may set it
    long next = 1;          // number of the page that is read next
    size_t size = 0;        // bytes of the file, when it was opened
    size_t left = 0;        // of these, not yet read
};

// Opens the file and reads its header. False with a message on standard error.
bool open_fax_pages(const std::string &path, fax_pages_t *fax);

// The same for a file that is open, from its beginning; `name` is for messages.
bool open_fax_pages(unique_fd fd, const std::string &name, fax_pages_t *fax);

// Reads the data of page `next`, and moves on to the page after it. False with a message on standard error if
// the file ends before the page does. Call it no more than `pages` times.
bool read_fax_page(fax_pages_t *fax, std::vector<unsigned char> *data);

// Moves on to the page after `next` without reading its data. False, without a message, if the file ends
// before the page does.
bool skip_fax_page(fax_pages_t *fax);

// Pages `first` to `last`, counted from 1; a `last` of 0 is the last one.
struct page_range_t {
    long first = 1, last = 0;
};

inline constexpr long most_document_pages = 65535;  // of a document: TIFF counts them in 16 bits

// Moves on to page `pages->first`, and sets a `last` of 0. False with a message on standard error if the fax
// does not have all of these pages, or none, or more than most_document_pages, or if their coding cannot be
// decoded.
bool find_pages(fax_pages_t *fax, page_range_t *pages);

// A page's place in the file, to read it again: goes back to where `next` and `left` were these.
struct page_place_t {
    long next;
    size_t left;
};
bool return_to_page(fax_pages_t *fax, const page_place_t &place);  // false with a message on standard error

// "Fax from +99 555 0143", or "Fax" if the sender gave no number: the bytes of the header, whatever they are.
std::string fax_title(const fax_pages_t &fax);

// Decodes the page read last and passes on its lines as they were sent (codec/page_coding.h), damage
// concealed. `data` may be changed. False with a message on standard error.
bool decode_fax_page(const fax_pages_t &fax, std::vector<unsigned char> *data, changes_callback found,
                     void *user);

// How a page decodes, with the white lines that t4dec makes of EOLs.
struct page_info_t {
    size_t bytes;
    bool decoded;             // false: no decoder for its coding, or nothing to decode
    t4_page_counts_t counts;  // if decoded
};

// Decodes a page of lines of 1728 pixels, and counts.
page_info_t look_at_page(int df, const std::vector<unsigned char> &data);

// Prints "PROGRAM: PATH: what" on standard error. Returns false, so that a caller can return its result.
bool complain(const fax_pages_t &fax, const std::string &what);

}  // namespace faxtray
