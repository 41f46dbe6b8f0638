// change_format: re-codes the pages of a fax file. Behind its header the file holds, for each page, 4 bytes
// length (big-endian) and as many bytes of coded data.
#pragma once

#include <cstdint>

namespace faxtray {

// Re-codes the fax file in place to DF code 0 (MH), 1 (MR) or 3 (MMR). `ignored` is ignored. `progress`, when
// given, is called once a page. 1, also when the file has that coding already; 0 with a message on standard
// error, the file then as it was and nothing left beside it.
int t4dec_change_format(const char *path, int df, int ignored, void (*progress)());

// The conversion's callbacks: collect a decoded line, hand all collected lines to the encoder, write
// code words to the output file.
void fp_found_line(const unsigned char *line, int bytes);
int fp_getdataf(const unsigned char **lines, int *count);
int fp_putdataf(const uint16_t *words, int count);

}  // namespace faxtray
