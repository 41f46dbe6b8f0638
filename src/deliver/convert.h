// convert: turns a fax file into TIFF class F or PDF with the site's converters.
#pragma once

#include <string>

namespace faxtray {

// With the site's utils/tiffconv, in place. 1, or -1 with an entry in the exception log.
int fax_to_tiff(const char *path);

// With rasterps2 and distill, by way of /tmp, to `pdf`; `path` is removed. 1, or 0 (traced).
int fax_to_pdf(const char *path, const char *pdf);

// Where a temporary-file extension (".0412tmp") begins in `name`, or null.
const char *get_tmp_ext(const char *name);

// `path` less a temporary extension, less a final ".fax", plus `ext`.
std::string converted_name(const char *path, const char *ext);

}  // namespace faxtray
