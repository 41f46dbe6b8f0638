// mail_encoding: encodes bytes as lines of text for mail, in constant memory.
#pragma once

#include <cstdio>

namespace faxtray {

// Both read `in` to its end and write to `out`. They return 1, also if writing fails (the callers' readers
// need not read all), or 0 with an entry in the exception log if reading fails.

// Base64 (RFC 4648 section 4), 72 characters a line; a last line shorter than that has no line end.
int encode_base64(FILE *in, FILE *out);

// Uuencode: 45 bytes a line, 0 written as "`", ended by a line "`". The lines "begin" and "end" are the
// caller's.
int encode_uuencode(FILE *in, FILE *out);

}  // namespace faxtray
