// file_names: names fit for a file system, POSIX and 8.3 (eight characters, a dot, three characters).
#pragma once

namespace faxtray {

// Copies `name` into `out` (at least as large), replacing each character outside the set of file-name
// characters by "_" and dropping characters above 127. Returns `out`.
char *posix_file_name_filter(const char *name, char *out);

// `n` in the digits "a" to "z", padded with "a" to three of them: "aaa" for 0 (and below), "aba" for 26.
// Static buffer.
const char *int_to_base_26(int n);

// Replaces the last component of `path` (a buffer of MAXPATHLEN bytes) by an 8.3 name that does not exist
// yet, such as "nov05aaa.fax", and returns `path`; null with errno when it does not fit. `ext` is the
// extension with its dot, ".fax" when null.
//
// The letters are a counter, kept in the file "i_d_order" of get_temp_dir(), so that names go on after a
// restart. It is locked while a name is chosen, so that hosts which share it do not choose the same; a name
// in use is never returned. When the counter cannot be read or written, a trace line says so and the counter
// starts from 0.
char *build_unique_DOS_name(char *path, const char *ext);

}  // namespace faxtray
