// publish: puts a finished file under the name by which others find it, whole or not at all.
#pragma once

namespace faxtray {

// Moves `src` to `dst` so that at no moment, and after no crash, a part of it is visible there or the file is
// lost: its bytes are on the disk before it gets the name, and the name before `src` is removed.
//
// A file of the same bytes at `dst` is replaced. When another file, or anything else, has that name, the next
// free one is taken: "_2", "_3", ... before the extension or, with `dos_names`, the next 8.3 name. `dst` (a
// buffer of MAXPATHLEN bytes) then holds the name used.
//
// 1, or 0 with a trace line: the file is then still at `src` or, when only flushing the directory failed,
// whole at `dst` but not safe from a crash.
int publish(const char *src, char *dst, bool dos_names);

}  // namespace faxtray
