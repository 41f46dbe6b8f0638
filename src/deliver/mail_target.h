// mail_target: recipients of mail as users write them: an address, or scheme "://" address, optionally
// followed by
// ";name=value" parameters.
#pragma once

#include <cstddef>

namespace faxtray {

// Returns the address part, in a static buffer of 256 bytes, or `target` itself if it has no "://". Null,
// with a message on standard error, if there is no address.
const char *get_mail_address(const char *target);

// Returns 1 if `attribute` is among the parameters and copies its value, which may be "", to `value`, cut to
// `size` bytes; 0 otherwise. For the fax system's other programs; none here calls it.
int get_mail_param(const char *target, const char *attribute, char *value, size_t size);

// Which scheme `target` begins with: 1 or 0. For mail_fax, which none of the programs here calls.
int is_mailto(const char *target);         // "mailto://": MIME
int is_mailtosun(const char *target);      // "mailtosun://": mail-tool
int is_mailtiffto(const char *target);     // "mailtiffto://": MIME with TIFF
int is_mailtifftosun(const char *target);  // "mailtifftosun://": mail-tool with TIFF

}  // namespace faxtray
