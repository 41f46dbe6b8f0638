// line_encoding: encodes bytes as lines of text, as mail needs them, in constant memory.
#pragma once

#include <cstdio>

namespace faxtray {

// Both read `in` to its end and write to `out`. They return true, also if writing fails, which ends them
// early, or false with errno if reading fails.

// Base64 (RFC 4648 section 4), 72 characters a line; a last line shorter than that has no line end.
bool base64_lines(FILE *in, FILE *out);

// Uuencode: 45 bytes a line, 0 written as "`", ended by a line "`". The lines "begin" and "end" are the
// caller's.
bool uuencode_lines(FILE *in, FILE *out);

}  // namespace faxtray
