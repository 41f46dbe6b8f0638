// paths: finding files, and making paths absolute and canonical. Nothing here writes to the disk.
#pragma once

#include <sys/param.h>

#include <cstddef>
#include <string>

#include "util/owned.h"

namespace faxtray {

static_assert(MAXPATHLEN == 4096);  // the size of every path buffer; longer paths are refused

// The absolute path (fix_path) of $ONDRIXHOME/name or ./name, whichever is readable first; null when neither
// is.
c_string find_file(const char *name);

// The same places, then each directory of $PATH, for a file that may be read and executed. For the fax
// system's other programs; none here calls it.
c_string find_executable(const char *name);

// `path` or, when that is null or empty, what find_file() finds, which `*found` then owns; null when it finds
// nothing.
const char *path_or_found(const char *path, const char *name, c_string *found);

// `path` made absolute: a leading "./" or "../" is dropped, once, and the current directory prefixed when the
// rest is relative. Null with a trace line (none for a null path) on failure.
c_string fix_path(const char *path);

// The canonical absolute form of `path`: white space and double quotes at both ends stripped, the current
// directory prefixed when the rest is relative, empty, "." and ".." components resolved by text alone, links
// not looked at. Null with a trace line when it is no valid path, or ".." leads above "/".
c_string mkpath(const char *path);

// True when mkpath(`path`) would return the same text. Decided without building it, since inbox scans ask it
// of every file.
bool is_canonical_path(const char *path);

// The current directory as it was when first asked, in `buffer`; null with a message on standard error. Kept:
// a later chdir is not seen, so relative paths in the two lists keep their meaning after the daemon changes
// directory.
char *cv_getcwd(char *buffer, size_t size);

// 1 when `path` has at most MAXPATHLEN characters and, but for white space and double quotes at both ends,
// neither white space nor control characters; else 0 with a trace line (none for null). "" is valid.
int is_valid_path(const char *path);
int is_full_path(const char *path);      // begins with "/"; null does not
int is_relative_path(const char *path);  // the opposite; for the fax system's other programs

// What follows the last "/", or all without one; part of `path`.
const char *last_component(const char *path);

// The last component of `path`, whose trailing "/" are cut in place; "/" is itself, null or "" yields ".".
// For the fax system's other programs; none here calls it.
char *basename(char *path);

// `path` cut in place before its last component, one trailing "/" ignored; "/" for what is directly in the
// root,
// "." without a "/" and for null or "".
char *dirname(char *path);

// $ONDRIXTMP, or "/tmp" when that is unset or, with a trace line, longer than a path may be. Static buffer.
const char *get_temp_dir();

// Where the commands of a user put temporary files: $TMPDIR, or "/tmp" when that is unset or empty.
std::string temporary_directory();

}  // namespace faxtray
