// convert: turns a fax file into TIFF class F or PDF with the site's converters.
//
// The converters run under the shell, and paths go into the command without quotes. So a path's last
// component must have been through posix_file_name_filter or build_unique_DOS_name, as deliver_fax sees to;
// the directories are the administrator's.
#pragma once

#include <string>

namespace faxtray {

// With $ONDRIXHOME/utils/tiffconv (without that variable: of the current directory), in place. 1, or -1 with
// an entry in the exception log, or a line on standard error where files are the trouble; the fax is then as
// it was and nothing is left beside it.
int fax_to_tiff(const char *path);

// With rasterps2 and distill, by way of /tmp/NAME.ps and /tmp/NAME.pdf, which are replaced when they stand
// there, to `pdf`, where nothing may stand; `path` is removed. 1, or 0 with trace lines: `path` is as it was
// and nothing is left. The caller logs the failure.
int fax_to_pdf(const char *path, const char *pdf);

// Where a temporary-file extension (".0412tmp") begins in `name`, or null.
const char *get_tmp_ext(const char *name);

// `path` less a temporary extension, less a final ".fax", plus `ext`. "" without memory.
std::string converted_name(const char *path, const char *ext) noexcept;

}  // namespace faxtray
