// password: the caller's password, from a file or the terminal, never from the command line.
#pragma once

#include <string>

namespace faxtray {

// A result of these is false with the reason on standard error.

// The first line of a file, without its line end. Warns when others may read the file.
bool read_password_file(const std::string &path, std::string *password);

bool have_terminal();
// Asks on /dev/tty without echo; "" when just Return was pressed. The terminal is set back even when
// a signal ends the program meanwhile.
bool ask_password(const std::string &prompt, std::string *password);

// The hash under which the user list holds it; "" for "". False when it cannot be a password.
bool hash_password(const std::string &password, std::string *hash);

}  // namespace faxtray
