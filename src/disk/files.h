// files: copying, moving and cutting files.
//
// What is made here for a delivery is written into its note (work_note.h).
#pragma once

#include <sys/types.h>

namespace faxtray {

// Copies a regular file to `dst`, or into it when it is a directory. A new target gets the source's
// permissions less the umask, an existing one its permissions. Returns 1, or 0 with a trace line, the
// half-made target removed. The source itself, or what is no regular file, is refused as the target.
int copy(const char *src, const char *dst);

// Moves a regular file, in place of a file that stands at `dst` or into a directory: by rename or, where
// rename cannot, by copy_staged to the disk, rename and removal. 1, or 0 with a trace line; the source then
// still exists, and no moment shows a part of it at `dst`.
int cv_move(const char *src, const char *dst);

// The same for a `dst` where nothing may stand.
int copy_new(const char *src, const char *dst);
int move_new(const char *src, const char *dst);

// rename(2), but -1 with EEXIST when something stands at `to`.
int rename_new(const char *from, const char *to);

// Copies a regular file to a new one in the directory of `dst`, with a name of ours, "ii_" + that of `dst` +
// a number, which scans of inboxes skip. `staged` (MAXPATHLEN bytes) gets its path. With `to_disk` the bytes
// are on the disk when this returns 1; 0 with a trace line, and nothing is left.
int copy_staged(const char *src, const char *dst, bool to_disk, char *staged);

// Makes a file in the work directory, empty, with mode 0666 less the umask, named `prefix` ("FDF." or "FDM.")
// and six characters. `path` (MAXPATHLEN bytes) gets its path, "" when none can be formed. An open descriptor
// (read and write), or -1 with errno.
int unique_file(const char *prefix, char *path);

// Puts the name `path` itself on the disk, as far as the file system can.
void sync_directory_of(const char *path);

// ftruncate with a trace line on failure; 0 or -1.
int cv_ftruncate(int fd, off_t length);

}  // namespace faxtray
