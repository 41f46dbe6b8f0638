// password: reads the caller's password from a file or the terminal; never from the command line, which other
// users can see.
#pragma once

#include <string>

#include "client/exit_status.h"

namespace faxtray {

// The functions that return bool (but have_terminal) return false with the reason on standard error.

// Reads the first line of a file, without its line end. Warns if others may read the file.
bool read_password_file(const std::string &path, std::string *password);

bool have_terminal();

// Asks on /dev/tty without echo; "" if only Return is pressed. The terminal is restored even if a signal ends
// the program meanwhile.
bool ask_password(const std::string &prompt, std::string *password);

// Asks for a new password, or reads it from the file if one is named, and prints the password line for the
// user's entry in USER_LIST.info. Needs no server.
exit_status passwd_command(const std::string &password_file);

// Stores the password's hash as in the user list, "" for "". False if the text cannot be a password.
bool hash_password(const std::string &password, std::string *hash);

}  // namespace faxtray
