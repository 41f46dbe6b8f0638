// listed_file: the file behind a listed fax. It is opened and removed only while it is the very file that was
// listed, and no link that a stranger made leads to it.
//
// Where another file stands, or a link that does not count, errno is ESTALE; the fax's node, which describes
// what is gone, has then been dropped with drop_file_node().
#pragma once

#include "inbox/fax_index.h"
#include "util/owned.h"

namespace faxtray {

// Opens a file of an inbox for reading: `path`, relative to `directory` as for openat(2). A link counts only
// if root, the daemon's user or the owner of the file that it leads to made it: users may make links in their
// inboxes, and the daemon reads what they may not. None with errno, ELOOP for a link that does not count.
unique_fd open_inbox_file(int directory, const char *path);

// The file at `path`, open for reading, if it is the one that was listed as `faxid`. None with errno.
unique_fd open_listed(fax_index_t *index, faxid_t faxid, const char *path);

// Whether a file opened by open_listed() is still what was listed. Asked after reading from it: what was read
// is then all of one file. False with errno.
bool is_as_listed(fax_index_t *index, faxid_t faxid, int fd);

// The same for the file at `path`, which must also be readable by its permission bits.
bool is_there_as_listed(fax_index_t *index, faxid_t faxid, const char *path);

// Removes the file at `path` if it is the one that was listed as `faxid`, and in any case the node, and
// writes a line to the access log. False with errno; the next scan lists the file that is there.
bool remove_listed(fax_index_t *index, faxid_t faxid, const char *path);

}  // namespace faxtray
