// fax_pages: reads the pages of a fax file one after another, and reports what they are like.
#pragma once

#include <string>
#include <vector>

#include "codec/t4_decoder.h"
#include "faxfile/fax_header.h"
#include "util/owned.h"

namespace faxtray {

// A fax file being read.
struct fax_pages_t {
    std::string path;
    unique_fd fd;
    fax_header_ptr header;
    int df = -1;      // DF code of its pages; -1 if the header's character is no code
    long pages = 0;   // as the header's "#PAGES" says; 0 without one
    long next = 1;    // number of the page that is read next
    size_t left = 0;  // bytes of the file not yet read
};

// Opens the file and reads its header. False with a message on standard error.
bool open_fax_pages(const std::string &path, fax_pages_t *fax);

// Reads the data of page `next`, and moves on to the page after it. False with a message on standard error if
// the file ends before the page does. Call it no more than `pages` times.
bool read_fax_page(fax_pages_t *fax, std::vector<unsigned char> *data);

// Moves on to the page after `next` without reading its data. False, without a message, if the file ends
// before the page does.
bool skip_fax_page(fax_pages_t *fax);

// How a page decodes.
struct page_info_t {
    size_t bytes;
    bool decoded;             // false: no decoder for its coding, or nothing to decode
    t4_page_counts_t counts;  // if decoded
};

// Decodes a page of lines of 1728 pixels, and counts.
page_info_t look_at_page(int df, const std::vector<unsigned char> &data);

// Prints the header and a line for each page, as text or JSON. False with a message on standard error if the
// file is damaged or a page cannot be decoded; what could be read is printed nevertheless.
bool print_fax_info(const std::string &path, bool json);

}  // namespace faxtray
