// work_note: a note of the files that a running delivery makes, so that the next start of the daemon can
// remove what a crash left.
//
// The note is the file "delivery_note.HOST.PID.N" in the work directory, which hosts may share: each removes
// only what its own processes have left. Its first line is the id of the host's boot, and the process that
// writes it holds a lock on it (util/file_lock.h): a process of an earlier boot, one whose number nobody has,
// or one whose note nobody has locked, has ended. The note names files in two ways:
//
//   will make   a path at which a file is about to be made. Recovery removes the file there if it is not
//               the one that was there before, is a regular file of our user, and has a name that no fax
//               has: "ii_..." (which inbox scans skip), "FDF....", "FDM....", "ANY.PID-XXXXXXXX" with
//               the PID of the process that wrote the note (util/process_tag.h), or any name directly in
//               /tmp;
//   made        a path and a file. Recovery removes the file at the path if it is that very file: same
//               device, inode and time of birth, as far as the file system has them.
//
// So a file that will carry a fax's name is created under one of those names, then noted as `made` under its
// final name before the rename; a file that someone else put there never has the same identity. A fax that is
// delivered (publish) is not noted under its final name: once there, it stays.
//
// While no note is open, all calls but note_begin(), note_remove() and note_recover() do nothing.
#pragma once

#include <set>
#include <string>

namespace faxtray {

// Opens a note. Calls nest: the outermost note_end() removes it. 1, or 0 with a trace line: a delivery may
// run without a note.
int note_begin();
void note_end();  // the delivery has ended and cleaned up after itself

// The next three trace a line that cannot be written, and carry on.

void note_will_make(const char *path);  // this process or a child of it is about to make the file
void note_made(const char *path);       // the file exists now

// The file `from` is about to be renamed to `to`. Returns when that is in the note and on the disk, as far as
// the disk allows.
void note_will_move(const char *from, const char *to);

// Removes a file that the delivery has made. False with errno; note_end() then leaves a note of the file for
// the next start.
bool note_remove(const char *path);

// The paths of all files that are there and that any note names: what deliveries are working on, of other
// processes too, and what they could not remove. Throws std::bad_alloc.
std::set<std::string> noted_files();

// Whether a delivery of any process is running: some note in the work directory is locked, or cannot be
// looked at. Throws std::bad_alloc.
bool delivery_runs();

// At start-up: removes what the notes of this host's dead processes name, as described above, with a line on
// standard error for each file, and then the notes. A note whose files cannot all be removed is kept for the
// next start. What hosts have left that have been away for a day is only listed on standard error.
void note_recover();

}  // namespace faxtray
