// mail_target: how users write to whom mail goes: an address, or scheme "://" address and ";name=value"
// parameters.
#pragma once

#include <cstddef>

namespace faxtray {

// The address part, in a static buffer of 256 bytes, or `target` itself when it has no "://"; null, with a
// message on standard error, when there is none.
const char *get_mail_address(const char *target);

// 1 when `attribute` is among the parameters; its value, "" when empty, goes to `value`, cut at `size`.
int get_mail_param(const char *target, const char *attribute, char *value, size_t size);

int is_mailto(const char *target);         // "mailto://": MIME
int is_mailtosun(const char *target);      // "mailtosun://": mail-tool
int is_mailtiffto(const char *target);     // "mailtiffto://": MIME with TIFF
int is_mailtifftosun(const char *target);  // "mailtifftosun://": mail-tool with TIFF

}  // namespace faxtray
