// file_names: names fit for a file system, POSIX and 8.3.
#pragma once

namespace faxtray {

// Copies `name` into `out` (as large as `name`), each character outside the set of file-name
// characters replaced by "_", characters above 127 dropped. Returns `out`.
char *posix_file_name_filter(const char *name, char *out);

// `n` in the digits "a" to "z", at least three of them: "aaa" for 0 (and below), "aba" for 26. Static.
const char *int_to_base_26(int n);

// Replaces the last component of `path` (a buffer of MAXPATHLEN bytes) by an 8.3 name that does not
// exist yet, such as "nov05aaa.fax", and returns `path`; null with errno when it does not fit. `ext` is
// the extension with its dot, ".fax" when null. Counts on in the file "i_d_order" of get_temp_dir().
char *build_unique_DOS_name(char *path, const char *ext);

}  // namespace faxtray
