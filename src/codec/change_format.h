// change_format: re-codes the pages of a fax file. After its header the file holds, for each page, a length
// of 4 bytes (big-endian) and as many bytes of coded data.
#pragma once

#include <cstdint>

namespace faxtray {

// Re-codes the fax file in place to `df` DF_MH, DF_MR or DF_MMR. `ignored` is ignored. `progress`, unless
// null, is called once a page. Returns 1, also if the file has that coding already; or 0 with a message on
// standard error, the file as it was and nothing left beside it. The new file has the permissions of the
// old one, at no moment wider ones, and our user as its owner. While it is written it has a name of its own
// beside the file; no other file is replaced.
int t4dec_change_format(const char *path, int df, int ignored, void (*progress)());

// The conversion's callbacks for decoder and encoder. They
// work on the conversion under way; nobody else calls them.

// Collects a decoded line; drops it without memory.
void fp_found_line(const unsigned char *line, int bytes);

// Hands out the lines collected so far, valid until the next is collected. Returns bytes in a line, or -1 if
// there are none.
int fp_getdataf(const unsigned char **lines, int *count);

// Writes code words to the output file. Returns the number of bytes, or -1.
int fp_putdataf(const uint16_t *words, int count);

}  // namespace faxtray
