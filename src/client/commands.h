// commands: what the faxtray command does once its command line has been parsed.
#pragma once

#include <string>
#include <vector>

#include "client/inbox_client.h"
#include "client/shown_faxes.h"

namespace faxtray {

// Exit statuses, as faxtray(1) documents them.
enum exit_status : int {
    EXIT_DONE = 0,
    EXIT_REFUSED = 1,      // by the server
    EXIT_USAGE = 2,        // wrong command line
    EXIT_UNREACHABLE = 3,  // no server, or the connection was lost
    EXIT_LOCAL = 4,        // a local file or the output
    EXIT_NOTHING = 5,      // nothing to do, or not confirmed
    EXIT_OTHER_FAX = 6,    // the id means another fax than when it was shown
};

// The command line, parsed; commands read what concerns them.
struct options {
    std::string host = "localhost", user, password_file;
    std::string inbox;  // description or handle of an incoming inbox; "" for the user's own
    int timeout = 25;   // seconds
    bool json = false;

    std::vector<faxid_t> ids;  // get, rm, info, deliver
    std::string output;        // get: file, directory, "-" or "" for the fax's own name
    bool force = false;        // get
    bool yes = false;          // commit
    std::string recipient;     // deliver
};

// What a command works with: an open connection, and the inbox that was asked for. Commands print results on
// standard output and the reasons of failures on standard error.
struct session {
    const options &chosen;
    inbox_client &client;
    inbox_ref inbox;
    shown_faxes shown;  // of that inbox
};

// One function for each command, named as in faxtray(1).
exit_status list_command(session &s);
exit_status count_command(session &s);
exit_status info_command(session &s);
exit_status get_command(session &s);
exit_status rm_command(session &s);
exit_status commit_command(session &s);
exit_status inboxes_command(session &s);
exit_status recipients_command(session &s);
exit_status deliver_command(session &s);
exit_status rev_command(session &s);
exit_status status_command(session &s);

// Prints the password line for the user's entry in USER_LIST.info; needs no server.
exit_status passwd_command(const options &chosen);

// Connects, finds the inbox and runs the command. `anonymous`: the command needs no password and no inbox.
exit_status run(const options &chosen, exit_status (*command)(session &), bool anonymous);

// The handle of the incoming inbox called `name`: by its description, compared as loosely as the server does,
// or by its handle. Descriptions come first, since people know those. Empty if there is none.
std::string handle_of(const std::vector<incoming_inbox> &inboxes, const std::string &name);

// What the user can do about a failure, or "".
std::string cure_for(const client_failure &failure);

}  // namespace faxtray
