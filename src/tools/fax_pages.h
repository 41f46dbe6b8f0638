// fax_pages: the pages of a fax file, for tools that look at them one after another.
#pragma once

#include <string>
#include <vector>

#include "codec/t4_decoder.h"
#include "faxfile/fax_header.h"
#include "util/owned.h"

namespace faxtray {

// A fax file that is being read.
struct fax_pages_t {
    std::string path;
    unique_fd fd;
    fax_header_ptr header;
    int df = -1;      // how its pages are coded, -1 when the header has a character that is no code
    long pages = 0;   // the header's "#PAGES"
    long next = 1;    // the page that is read next
    size_t left = 0;  // bytes of the file behind what has been read
};

// Opens the file and reads its header. False with a message on standard error.
bool open_fax_pages(const std::string &path, fax_pages_t *fax);

// The data of page `next`, and on to the one behind. False with a message on standard error when the file
// ends before the page does; call it no more than `pages` times.
bool read_fax_page(fax_pages_t *fax, std::vector<unsigned char> *data);

// What the decoders make of a page.
struct page_info_t {
    size_t bytes;
    bool decoded;  // false: no decoder for its coding, or nothing to decode
    t4_page_counts_t counts;
};

page_info_t look_at_page(int df, const std::vector<unsigned char> &data);

// Prints the header and a line for each page, as text or JSON. False, with a message on standard error, when
// the file is damaged or a page cannot be decoded; what could be read is printed all the same.
bool print_fax_info(const std::string &path, bool json);

}  // namespace faxtray
