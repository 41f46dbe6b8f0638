// convert: turns a fax file into MH coding, TIFF class F or PDF; the latter two with the site's converters.
//
// The converters run under the shell, which gets every path as one word (util/shell_word.h). What they make
// is readable by our user alone; what is made of a fax in the end has the fax's permissions.
#pragma once

#include <string>

namespace faxtray {

// What differs between the two that have faxes converted.
struct conversion_t {
    const char *function;  // its name in messages
    int destinations;      // of its entries in the exception log
    bool from_copy;        // the TIFF is made from a copy and the fax stays; else the fax becomes the TIFF
};

// The name that convert_fax gives the new file, if it is free; "" if it makes none but works in place.
// `from_copy` as in conversion_t.
std::string converted_fax(const char *path, int format, bool from_copy);

// Converts the fax in place, or into a new file beside it, as `format`, a value handle of
// delivery_file_format, asks. `path`, a buffer of MAXPATHLEN bytes, gets the name of a new file: that of
// converted_fax or, if another process has taken it meanwhile, the next of the copy's eight names or the next
// short name. A PDF takes the fax's place. `keepalive`, or null, is called during long work. False with an
// entry in the exception log; the fax is then as it was, and nothing is left beside it.
bool convert_fax(char *path, int format, const conversion_t &by, void (*keepalive)()) noexcept;

// Converts to TIFF class F in place, with $ONDRIXHOME/utils/tiffconv (without that variable: of the current
// directory). Returns 1, or -1 with an entry in the exception log or, if it is a file that fails, a line on
// standard error; the fax is then as it was and nothing is left beside it.
int fax_to_tiff(const char *path) noexcept;

// Where a temporary-file extension (".0412tmp") begins in `name`, or null.
const char *get_tmp_ext(const char *name);

// `path` less a temporary extension, less a final ".fax", plus `ext`.
std::string converted_name(const char *path, const char *ext);

}  // namespace faxtray
