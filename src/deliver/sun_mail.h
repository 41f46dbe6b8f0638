// sun_mail: sends a text and a fax as one message in the mail-tool's attachment format: each part begins with
// a line of ten hyphens, the fax is uuencoded, and every header says how many lines and bytes follow it.
#pragma once

namespace faxtray {

// `address` is plain; a null argument counts as "". Returns 1, or -1 with an entry in the exception log. The
// encoded fax is kept in a file of the work directory until it has been sent, since its size is needed before
// it: a full disk fails the mail.
int sun_mail_fax(const char *address, const char *subject, const char *text, const char *fax_path,
                 const char *data_type);

}  // namespace faxtray
