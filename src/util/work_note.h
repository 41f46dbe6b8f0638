// work_note: what a delivery makes, written down while it runs, so that the next start can remove what a
// crash left behind.
//
// The note is a file in the work directory, one line a file made, with its device and inode. Files that
// carry names of faxes are born under a name of ours and renamed once noted, so no fax of others is ever
// taken for a left-over. Without a note under way all calls but note_recover() do nothing and succeed.
#pragma once

namespace faxtray {

int note_begin();  // 1, or 0 with a trace line; a delivery may run without
void note_end();   // the delivery has ended and has cleaned up

void note_will_make(
    const char *path);             // nothing stands there now; we, or a child of ours, are about to make it
void note_made(const char *path);  // it stands: device and inode are added

// At start: removes what the note of a crashed run names and what still is what it was.
void note_recover();

}  // namespace faxtray
