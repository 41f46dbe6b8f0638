// mail_encoding: bytes as lines of text for mail, in constant memory.
#pragma once

#include <cstdio>

namespace faxtray {

// RFC 4648 base64, 72 characters a line. 1, or 0 when reading fails, with an entry in the exception log.
int encode_base64(FILE *in, FILE *out);

// 45 bytes a line, 0 written as "`", ended by a line "`"; without "begin" and "end". 1 or 0 likewise.
int encode_uuencode(FILE *in, FILE *out);

}  // namespace faxtray
