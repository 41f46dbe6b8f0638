// private_host: a host of a program's own, so that daemons under test never meet the machine's and
// any number of them run side by side.
//
// Own network (loopback only), host name "localhost", /etc with only that host known, an empty /run,
// own processes, rpcbind, and a /usr/lib/sendmail that records what it is given. All of it goes when
// the program ends. Needs root and a kernel that lets root make namespaces.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace faxtray {

inline constexpr int NO_PRIVATE_HOST = 77;  // ctest's SKIP_RETURN_CODE

// Runs `body` in a child on a private host and returns its result. NO_PRIVATE_HOST, with the reason on
// standard error, when this user or kernel does not allow one; 1 when making it fails otherwise.
int run_on_private_host(const std::function<int()> &body);

// The port mapper runs from the start; these return when it answers, and when it is gone.
void start_port_mapper();
void stop_port_mapper();

// What sendmail was given, oldest first: a line "args: ..." and the message. Then forgets it.
std::vector<std::string> take_mail();

// Puts a script in the place of /usr/lib/sendmail, and the recording one back.
void replace_mail_agent(const std::string &script);
void restore_mail_agent();

}  // namespace faxtray
