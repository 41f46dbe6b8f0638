// page_coding: coded pages in memory: what they hold, and the same lines in another coding.
#pragma once

#include <cstddef>
#include <vector>

#include "codec/fast_encoder.h"
#include "codec/line_assembler.h"

namespace faxtray {

// A page that any reader decodes to the lines that t4dec passes on.
struct clean_page_t {
    long lines;
    size_t bytes;  // of its data up to the end of the lines: for MH and MR with the EOL that ends the last
                   // one, but without the rest of the end-of-page code; for MMR with that code
};

// Whether the page is clean: it begins with its first line (for MH and MR, with the EOL before it), every
// line is coded without fault and without anything between it and the next, and after the last comes the
// end-of-page code (for MH and MR at least one EOL), then nothing but zeros. Of 1 to 2^31 - 1 lines.
bool is_clean_page(const unsigned char *data, size_t length, int df, clean_page_t *page);

// Decodes a page of `df` DF_MH, DF_MR or DF_MMR and passes its lines, damage concealed, to `encoder`, up to
// `most_lines` of them; more are dropped. The page is not finished: encoder->finish() is the caller's. False
// if t4dec fails, as for another `df`.
bool encode_lines_of(const unsigned char *data, size_t length, int df, fast_encoder_t *encoder,
                     long most_lines);

// Codes a page anew as `to`, in `vr`'s way (as encode_g3_fax), damage concealed; `coded` gets the data, and
// `lines` their number. A page without lines becomes one white line. False if t4dec fails, with `coded`
// undefined, or without memory.
bool recode_page(const unsigned char *data, size_t length, int df, int to, int vr,
                 std::vector<unsigned char> *coded, long *lines);

}  // namespace faxtray
