// mail_encoding: encodes faxes for mail (util/line_encoding.h), with an entry in the exception log if one
// cannot be read to its end.
#pragma once

#include <cstdio>

namespace faxtray {

// Both return 1, also if writing fails (the callers' readers need not read all), or 0 if reading fails.
int encode_base64(FILE *in, FILE *out);
int encode_uuencode(FILE *in, FILE *out);

}  // namespace faxtray
