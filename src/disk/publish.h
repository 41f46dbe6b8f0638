// publish: puts a finished file under the name by which others find it, whole or not at all.
#pragma once

namespace faxtray {

// Moves `src` to `dst` so that no moment, and no crash, shows a part of it under that name or loses it: the
// bytes are on the disk before the name is. A file of the same bytes that stands there is replaced; of other
// bytes, the next free name is taken: "_2", "_3", ... before the extension or, with `dos_names`, the next
// 8.3 name. `dst` (a buffer of MAXPATHLEN bytes) then holds the name used. 1, or 0 with a trace line; `src`
// then still exists.
int publish(const char *src, char *dst, bool dos_names);

}  // namespace faxtray
