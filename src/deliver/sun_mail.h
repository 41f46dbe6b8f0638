// sun_mail: a text and a fax as one message of the mail-tool's attachment format: parts begin with a line of
// ten hyphens, the fax is uuencoded, and every header counts the lines and bytes that follow it.
#pragma once

namespace faxtray {

// `address` is plain. 1, or -1 with an entry in the exception log. The encoded fax lies in a file of the work
// directory meanwhile, since its size stands in front of it; a full disk fails the mail. What is null counts
// as "".
int sun_mail_fax(const char *address, const char *subject, const char *text, const char *fax_path,
                 const char *data_type);

}  // namespace faxtray
