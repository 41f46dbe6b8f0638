// mail: notices and faxes by way of the system's mail agent, "/usr/lib/sendmail -om ADDRESS".
//
// What is here gives 1 when the message went to the agent, -1 with an entry in the exception log or a trace
// line when it did not.
#pragma once

namespace faxtray {

int mail(const char *user, const char *subject, const char *message);

// Mails a fax to `address` as a recipient's entry asks: `method`, `encoding` and `format` are the values of
// delivery_method, delivery_body_encoding and delivery_file_format; each may be null. The fax at `fax_path`
// may be re-coded in place or converted away. `keepalive`, or null, is called during long work.
int mail_fax_image(const char *address, const char *subject, const char *text, const char *fax_path,
                   const char *method, const char *encoding, const char *format, void (*keepalive)());

int mail_fax(const char *url, const char *subject, const char *text, const char *fax_path);
int mime_mail_fax(const char *address, int flags, const char *subject, const char *text, const char *fax_path,
                  const char *content_type);
int sun_mail_fax(const char *address, const char *subject, const char *text, const char *fax_path,
                 const char *data_type);

const char *mail_get_mail_from();  // the sender's address; static

}  // namespace faxtray
