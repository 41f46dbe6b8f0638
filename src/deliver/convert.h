// convert: turns a fax file into MH coding, TIFF class F or PDF; the latter two with the site's converters.
//
// The converters run under the shell, and paths go into the command without quotes. So a path's last
// component must have been through posix_file_name_filter or build_unique_DOS_name, as deliver_fax sees to;
// the directories are the administrator's.
#pragma once

#include <string>

namespace faxtray {

// What differs between the two that have faxes converted.
struct conversion_t {
    const char *function;  // its name in messages
    int destinations;      // of its entries in the exception log
    bool from_copy;        // the TIFF is made from a copy and the fax stays; else the fax becomes the TIFF
};

// Converts the fax in place, or into a new file beside it, as `format`, a value handle of
// delivery_file_format, asks. `path`, a buffer of MAXPATHLEN bytes, gets the name of a new file; nothing may
// exist there before. A PDF takes the fax's place. `keepalive`, or null, is called during long work. False
// with an entry in the exception log; the fax is then as it was, and nothing is left beside it.
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
