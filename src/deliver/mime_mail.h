// mime_mail: a text and a fax as one MIME message (RFC 2045 and 2046): multipart/mixed, the fax in base64.
#pragma once

namespace faxtray {

// `address` is plain; `flags` is ignored; an empty text has no part; without `fax_path` there is no fax; what
// is null otherwise counts as "". 1, or -1 with a trace line when the fax cannot be opened or the agent not
// be run. Kept: a fax that cannot be read to its end does not stop the message; the exception log tells.
int mime_mail_fax(const char *address, int flags, const char *subject, const char *text, const char *fax_path,
                  const char *content_type);

}  // namespace faxtray
