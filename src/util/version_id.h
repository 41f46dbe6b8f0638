// version_id: version identification strings, nine fields separated by "|":
// marker|module|release|minor release|level|branch|sequence|delta date|delta time.
#pragma once

namespace faxtray {

// This system's own, passed to the exception log. Kept: the template as it is before any number is filled in;
// clients and the log show its keyword letters.
inline constexpr char SCCS_ID[] = "%Z%|%M%|%R%|0|%L%|%B%|%S%|%G%|%U%";

// The named field of `id`, valid until the next string is parsed; null when it has fewer than nine fields, an
// empty one counting as none. With `id` null or empty, the field of the string parsed last.
const char *rev_release(const char *id);
const char *rev_level(const char *id);
const char *rev_branch(const char *id);
const char *rev_sequence(const char *id);

// For the fax system's other programs; none here calls these.
const char *rev_module(const char *id);
const char *rev_minor_release(const char *id);
const char *rev_delta_date(const char *id);
const char *rev_delta_time(const char *id);

// Writes "Version  9.2     Release 9.01" and the like into `out` (of `size` bytes), cut short where it does
// not fit. Returns the text's length, 0 when a field is missing.
int rev_revinfo(const char *id, char *out, int size);

}  // namespace faxtray
