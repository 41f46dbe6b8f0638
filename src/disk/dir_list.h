// dir_list: the names in a directory, all read when it is opened, then filtered by regular expressions. What
// happens in the directory afterwards does not change the list.
#pragma once

namespace faxtray {

struct dir_list_t;

// Reads all names, "." and ".." among them, in the order the system returns them. The caller frees the list
// with dir_close(). Null with errno when the directory cannot be read; without memory also with a message on
// standard error.
dir_list_t *dir_open(const char *path);

// The next name that `pattern` (a POSIX extended regular expression) matches; valid until dir_close(). A null
// or empty pattern means the last one. Null at the end of the list, or with errno EINVAL when the pattern is
// bad or there was none.
const char *dir_grep(dir_list_t *dir, const char *pattern);

// Back to the first name; 1, or 0 for null. For the fax system's other programs; none here calls it.
int dir_rewind(dir_list_t *dir);

void dir_close(dir_list_t *dir);  // null is ignored

}  // namespace faxtray
