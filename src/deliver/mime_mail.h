// mime_mail: sends a text and a fax as one MIME message (RFC 2045 and 2046): multipart/mixed, the fax in
// base64.
#pragma once

namespace faxtray {

// `address` is plain; `flags` is ignored. An empty text yields no text part, a null `fax_path` no attachment;
// any other null argument counts as "". Returns 1, or -1 with a trace line if the fax cannot be opened or the
// agent cannot be run. Kept: a fax that cannot be read to its end does not stop the message; the recipient
// gets the part that was read, and the exception log says so.
int mime_mail_fax(const char *address, int flags, const char *subject, const char *text, const char *fax_path,
                  const char *content_type);

}  // namespace faxtray
