// file_node: describes a file of an inbox as its index shows it, from its status and its fax header.
#pragma once

#include <sys/stat.h>

#include "inbox/scan_complaints.h"
#include "protocol/records.h"
#include "util/owned.h"

namespace faxtray {

// A node for the file called `name` in its inbox, with a new fax id; size and mtime are those of `st`. `fd`
// is the file at `path` as opened with open_inbox_file(); no descriptor stands for the failure of that,
// errno. Reads one block, which holds the whole header of almost every fax. Null with a complaint if the file
// cannot be read, or begins like a fax file but has no sound header. Throws std::bad_alloc.
file_node_t *create_file_node(unique_fd fd, const char *path, const char *name, const struct stat &st,
                              scan_complaints_t &complaints);

// The same for the file at `path`, with a message instead of a complaint and without exceptions. For the fax
// system's other programs; none here calls it, because scans read files relative to the open directory.
file_node_t *create_file_node(const char *path, const char *name, const struct stat &st);

}  // namespace faxtray
