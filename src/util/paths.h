// paths: finding files, and making paths absolute and canonical. Nothing here writes to the disk.
#pragma once

#include <sys/param.h>

#include <cstddef>

#include "util/owned.h"

namespace faxtray {

static_assert(MAXPATHLEN == 4096);  // every path buffer's size; longer paths are refused

// $ONDRIXHOME/name or ./name, whichever is readable first; null when neither is. The caller frees.
char *find_file(const char *name);
// The same places, then each directory of $PATH, for a file that may be read and executed.
char *find_executable(const char *name);
// `path`, or when that is null or empty the file that find_file finds, which `*found` then holds; null when
// there is none.
const char *path_or_found(const char *path, const char *name, c_string *found);

// An absolute form of `path`: a leading "./" or "../" is dropped once, the current directory put in
// front of a relative path. The caller frees; null with a trace line on failure.
char *fix_path(const char *path);

// The canonical absolute form of `path`: enclosing white space and double quotes stripped, empty, "."
// and ".." components resolved by text alone. The caller frees; null with a trace line on failure.
char *mkpath(const char *path);

// True when mkpath(`path`) would give `path` itself back, decided without building it: absolute,
// short enough, no white space, control character or enclosing quote, canonical components.
bool is_canonical_path(const char *path);

// The current directory as it was when first asked, or null with a message on standard error. Kept: a
// later chdir is not seen.
char *cv_getcwd(char *buffer, size_t size);

// 1 when `path` has at most MAXPATHLEN characters and, but for enclosing white space and double quotes,
// neither white space nor control characters; else 0 with a trace line. "" is valid, null is not.
int is_valid_path(const char *path);
int is_full_path(const char *path);      // begins with "/"; null does not
int is_relative_path(const char *path);  // the opposite

// What follows the last "/", or all without one; part of `path`.
const char *last_component(const char *path);

// The last component of `path`, whose trailing "/" is cut in place; "/" is itself, null or "" gives ".".
char *basename(char *path);
// `path` cut in place before its last component; "/" in front of everything stays. "." without a "/".
char *dirname(char *path);

// $ONDRIXTMP, or "/tmp" when it is unset or longer than a path may be. Static buffer.
const char *get_temp_dir();

}  // namespace faxtray
