// dir_list: the entry names of a directory, read at once and filtered by a regular expression.
#pragma once

namespace faxtray {

struct dir_list_t;

dir_list_t *dir_open(const char *path);  // null when it cannot be read; dir_close() it
// The next name that `pattern` (POSIX extended) matches; null or "" goes on with the last pattern.
// Null at the end, or with errno EINVAL for a bad pattern. The name is the handle's own.
const char *dir_grep(dir_list_t *dir, const char *pattern);
int dir_rewind(dir_list_t *dir);
void dir_close(dir_list_t *dir);

}  // namespace faxtray
