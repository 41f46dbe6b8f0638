// mail: sends notices and faxes through the system's mail agent.
//
// Recipients are mail targets (mail_target.h), or several plain addresses with blanks between them. The
// functions return 1 if the message was handed to the agent, or -1 with an entry in the exception log or a
// trace line, also if there is no agent or if it had to be ended for taking too long. Any other failure of
// the agent is logged but does not change the result.
#pragma once

namespace faxtray {

// Sends a notice. An empty subject is replaced by a default; an empty message is refused.
int mail(const char *user, const char *subject, const char *message);

// Mails a fax to `address` as a recipient's entry asks: `method`, `encoding` and `format` are the values of
// delivery_method, delivery_body_encoding and delivery_file_format; each may be null. The fax at `fax_path`
// is re-coded in place, or removed when it becomes a PDF; other files that the conversion makes are removed
// before this returns, and they replace no file. `keepalive`, or null, is called during long work.
int mail_fax_image(const char *address, const char *subject, const char *text, const char *fax_path,
                   const char *method, const char *encoding, const char *format, void (*keepalive)());

// Mails a fax to a target whose scheme says in what form; TIFF forms convert the fax in place. For the fax
// system's other programs; none here calls it.
int mail_fax(const char *url, const char *subject, const char *text, const char *fax_path);

}  // namespace faxtray
