// short_hash: the hash that stands for a password in users' records and requests, and for an incoming
// directory in what clients are shown. It is a check value (crc.h): it keeps no secret.
#pragma once

namespace faxtray {

// The hash of `text` up to its end or first line feed, in lower-case hexadecimal without leading zeros: at
// most eight digits, in a static buffer. Null, with a message on standard error, when that text is empty,
// contains white space or has 4096 characters or more.
const char *passwd(const char *text);

}  // namespace faxtray
