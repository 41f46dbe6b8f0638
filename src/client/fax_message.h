// fax_message: a fax as a mail message (RFC 5322, MIME): what is known of it as text, its first page as a PNG
// image, and all pages as PDF. Of what is damaged there is as much as can be had, and the file itself.
#pragma once

#include <cstdio>
#include <string>

#include "client/client_session.h"

namespace faxtray {

// A UUID (RFC 4122 section 4.3) made of host, user, inbox, and the fax's name, size and mtime: the same
// whenever that fax is listed, and another for every other.
std::string fax_uuid(const session &s, const fax_entry &fax);

// Fetches a fax and writes its message to `out`, lines ended by line feeds; `uuid` becomes its Message-ID.
// EXIT_REFUSED if it could not be fetched; otherwise failures are not the fax's. They are printed; those of
// writing to `out` are the caller's to find.
exit_status write_fax_message(session &s, const fax_entry &fax, const std::string &uuid, FILE *out);

}  // namespace faxtray
