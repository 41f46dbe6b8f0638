// pw_req: making and freeing the caller's identity record.
#pragma once

#include <memory>

#include "protocol/records.h"
#include "util/owned.h"

namespace faxtray {

// A copy with its own strings, or null with a message on standard error. Kept: null strings of the source
// become empty strings in the source itself, since callers go on to use them; those are constants and must
// not be freed.
pw_req_t *copy_pw(pw_req_t *source);

// A new record with copies of the five values; a null string becomes an empty one. Null as with copy_pw.
pw_req_t *new_pw(const char *user, const char *password, const char *reserved_str, int reserved_int,
                 u_int check_value);

// Frees the record and its strings; null, and null strings, are allowed.
void free_pw(pw_req_t *pw);

using pw_req_ptr = std::unique_ptr<pw_req_t, deleter<free_pw>>;

}  // namespace faxtray
