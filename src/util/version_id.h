// version_id: version identification strings, nine fields separated by "|":
// marker|module|release|minor release|level|branch|sequence|delta date|delta time.
#pragma once

namespace faxtray {

// Our own: the unexpanded template. Kept: clients and the log see the keyword letters, not numbers.
inline constexpr char SCCS_ID[] = "%Z%|%M%|%R%|0|%L%|%B%|%S%|%G%|%U%";

// The named field of `id`, which replaces the last parse (empty fields collapse; fewer than nine
// fields: null). With `id` null or empty, the field of the last parse. Valid until the next parse.
const char *rev_module(const char *id);
const char *rev_release(const char *id);
const char *rev_minor_release(const char *id);
const char *rev_level(const char *id);
const char *rev_branch(const char *id);
const char *rev_sequence(const char *id);
const char *rev_delta_date(const char *id);
const char *rev_delta_time(const char *id);

// Writes "Version 9.2     Release 9.01" and the like into `out` (of `size` bytes). Returns the
// text's length, 0 when a field is missing.
int rev_revinfo(const char *id, char *out, int size);

}  // namespace faxtray
