// mail: notices and faxes by way of the system's mail agent.
//
// A mail target is an address as mail_target.h reads it. The calls give 1 when the message went to the
// agent, -1 with an entry in the exception log or a trace line when it did not. The agent's own failure does
// not change the result; it is logged.
#pragma once

namespace faxtray {

// A notice. An empty subject is replaced by a default, an empty message refused.
int mail(const char *user, const char *subject, const char *message);

// Mails a fax to `address` as a recipient's entry asks: `method`, `encoding` and `format` are the values of
// delivery_method, delivery_body_encoding and delivery_file_format; each may be null. The fax at `fax_path`
// may be re-coded in place or converted away; what else the conversion makes is gone when this returns, and
// stands on no file of others. `keepalive`, or null, is called during long work.
int mail_fax_image(const char *address, const char *subject, const char *text, const char *fax_path,
                   const char *method, const char *encoding, const char *format, void (*keepalive)());

// Mails a fax to a target with a scheme, which says in what form; TIFF forms convert the fax in place.
int mail_fax(const char *url, const char *subject, const char *text, const char *fax_path);

}  // namespace faxtray
