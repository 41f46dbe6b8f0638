// work_note: what a delivery makes, written down while it runs, so that the next start can remove what a
// crash left behind.
//
// The note is the file "delivery_note.PID.N" in the work directory, locked (flock) by the process that writes
// it: a note that nobody holds is a dead process's. It names files in two ways, and recovery removes
//
//   will make   what stands at a path since, if it is a regular file of our user with a name that no fax has:
//               "ii_..." (which inbox scans skip), "FDF....", "FDM....", "ANY.PID", PID being the process
//               that wrote the note, or any name directly in /tmp;
//   made        what stands at a path and still is that very file: same device, inode and time of birth.
//
// So what shall bear a fax's name is born under one of those names and noted under the other one before it is
// moved there; what somebody else put there, before or after, is never that very file. What a delivery hands
// over (publish) is not noted under its last name: once there, it stays.
//
// Without a note under way all calls but note_recover() do nothing and succeed.
#pragma once

namespace faxtray {

// A begun note may be begun again; the last end removes it. 1, or 0 with a trace line: a delivery may run
// without.
int note_begin();
void note_end();  // the delivery has ended and has cleaned up

void note_will_make(const char *path);  // we, or a child of ours, are about to make it
void note_made(const char *path);       // it stands there now

// `from` is about to be renamed to `to`. The note is on the disk when this returns.
void note_will_move(const char *from, const char *to);

// At start: removes what the notes of dead processes name, as said above, each with a line on standard error.
void note_recover();

}  // namespace faxtray
