// files: copying, moving and cutting files, and the one way in which a file gets the name by which others
// find it: written under a name of its own in the same directory, put on the disk, renamed, the directory put
// on the disk. So a crash shows the whole file under its name or none of it.
//
// Files made here for a delivery are written into its note (work_note.h).
#pragma once

#include <sys/types.h>

#include "util/owned.h"

namespace faxtray {

// Write beside, then rename

// Creates a file of that mode less the umask, open for reading and writing. None with errno: EEXIST also for
// a link that leads nowhere.
unique_fd make_new(const char *path, mode_t mode);

// Gives the open file the permissions in `mode`, whatever the umask. A failure is only traced: some file
// systems keep no permissions.
void give_permissions(int fd, const char *path, mode_t mode);

// Copies a regular file, no link, to a new one in the directory of `dst` with the source's permissions, at no
// moment wider ones. It is named "ii_" + the name of `dst` + a number, which inbox scans skip; `staged`
// (MAXPATHLEN bytes) gets its path. The new file, open for writing; none with errno and a trace line, nothing
// is left then. The caller renames it or removes it.
unique_fd copy_staged(const char *src, const char *dst, char *staged);

// rename(2), but -1 with EEXIST when `to` exists.
int rename_new(const char *from, const char *to);

// Gives the finished file `staged`, written through `fd`, the name `dst` in the same directory and waits
// until both its bytes and its name are on the disk. What exists at `dst` is replaced with `replace`, else
// refused with EEXIST. False with errno; the caller then removes `staged`, unless only the directory's flush
// failed and the file is whole at `dst`.
bool put_in_place(unique_fd fd, const char *staged, const char *dst, bool replace);

// Copying and moving: 1, or 0 with a trace line, the source untouched and no half-made target left

// Copies a regular file to `dst`, or into it when it is a directory. A new target gets the source's
// permissions less the umask; an existing one is overwritten and gets its permissions. The source itself and
// anything but a regular file are refused as the target.
int copy(const char *src, const char *dst);

// Moves a regular file, no link, with its permissions to `dst`, replacing a regular file there, or into a
// directory: by rename or, to another file system, by a staged copy put in place. At no moment is a part of
// it visible at `dst`. When the source cannot be removed afterwards, the file exists twice.
int cv_move(const char *src, const char *dst);

// As cv_move, but 0 with EEXIST when `dst` exists.
int move_new(const char *src, const char *dst);

// Copies a regular file with its permissions to `dst`; 0 with EEXIST when that exists. Whole once it is
// visible, but not flushed: for files that the running delivery only works on.
int copy_new(const char *src, const char *dst);

// The same for the file that is open at `fd`, whatever is at `src` by now.
int copy_new_open(int fd, const char *src, const char *dst);

// Others

// Makes a file in the work directory, empty, for our user alone, named `prefix` ("FDF." or "FDM.")
// and six random letters. `path` (MAXPATHLEN bytes) gets its path, "" when no random number is to be had. Its
// descriptor for reading and writing, the caller's to close, or -1 with errno.
int unique_file(const char *prefix, char *path);

// ftruncate(2) with a trace line on failure; 0, or -1 with errno. For the fax system's other programs; none
// here calls it.
int cv_ftruncate(int fd, off_t length);

}  // namespace faxtray
