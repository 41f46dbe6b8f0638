// fax_file_writer: writes a fax file: its header, then one coded page after another.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace faxtray {

using fax_attributes_t = std::vector<std::pair<std::string, std::string>>;  // names and values

// What is known of a fax before its pages are written.
struct fax_facts_t {
    long pages = 0;
    int vr = 1, df = 0;             // VR and DF codes
    fax_attributes_t call, others;  // those between #PAGES and RESOLUTION, and those after COMPRESSION
};

// Writes the header at the beginning of the regular file `fd`, and leaves the file at its end. False with a
// message on standard error, also if an attribute cannot stand in a header (see write_fax_header).
bool write_fax_start(int fd, const fax_facts_t &facts);

// Appends a page. False with errno.
bool write_fax_page(int fd, const std::vector<unsigned char> &coded);

}  // namespace faxtray
