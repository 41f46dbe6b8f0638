// page_coding: coded pages in memory, and their lines in another coding.
#pragma once

#include <cstddef>
#include <vector>

#include "codec/fast_decoder.h"

namespace faxtray {

// Decodes a page of `df` DF_MH, DF_MR or DF_MMR and passes every line on as a list of changing elements,
// damage concealed; the lines and counts are those of t4dec. False where that returns 0.
bool decode_changes(const unsigned char *data, size_t length, int df, changes_callback found, void *user);

// The same for a page as it was sent, without the white lines that t4dec makes of the EOLs around the lines
// of MH: of the one before the first line and of the end-of-page code, which is removed from `data`. A page
// without any line, or without data, becomes one white line.
bool decode_sent_lines(std::vector<unsigned char> *data, int df, changes_callback found, void *user);

// The most lines of a page that are re-coded; more are dropped. The limit is against pages made to exhaust
// memory or time: one byte of T.6 can be eight lines.
inline constexpr long most_recoded_lines = 256 * 1024 * 1024 / changes_line_bytes;

// A changes_callback that codes lines; `encoder` is a fast_encoder_t.
void encode_changes(void *encoder, const line_changes_t &line, bool same);

// Codes the sent lines of a page anew as `to`. `vr` as of encode_g3_fax. `coded` gets the data, `lines` the
// number of lines. False where t4dec returns 0.
bool recode_in_memory(std::vector<unsigned char> *data, int df, int to, int vr,
                      std::vector<unsigned char> *coded, long *lines);

// The lines of a clean page, one that every reader decodes to the lines that were sent.
struct clean_page_t {
    long lines;
    size_t bytes;  // of its data up to the end of the lines: for MH and MR with the EOL that ends the last
                   // line but without the rest of the end-of-page code, for MMR with all of that code
};

// Whether the page is clean: it begins with its first line (for MH and MR with the EOL before it, for MR with
// a line coded one-dimensionally), has at least one, and all are coded without fault and follow each other
// directly; after the last comes the end-of-page code (for MH and MR one EOL suffices), then only zeros.
bool is_clean_page(const unsigned char *data, size_t length, int df, clean_page_t *page);

}  // namespace faxtray
