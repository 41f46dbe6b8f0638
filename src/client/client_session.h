// client_session: what the commands of faxtray have in common: the parsed command line, the connection, the
// faxes that the user means, and how failures are reported.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "client/exit_status.h"
#include "client/inbox_client.h"
#include "client/shown_faxes.h"

namespace faxtray {

// A word that is being typed (completion.h).
struct typed_word_t {
    std::string before;  // what precedes the text in the word: "--as="
    std::string text;
    bool in_quotes = false;
};

// The command line, parsed; commands read what concerns them.
struct options {
    std::string host = "localhost";  // or several, with commas between
    std::string user, password_file;
    std::string inbox;  // description or handle of an incoming inbox; "" for the user's own
    int timeout = 25;   // seconds
    bool json = false;

    std::vector<std::string> faxes;  // ids; where the command takes them, also "newest" and "oldest"
    bool all = false;                // get
    std::string form = "fax";        // get
    long page = 0;                   // get, view: 0 for all pages, or the first
    std::string output;              // get: file, directory, "-" or "" for the fax's own name
    bool force = false;              // get
    bool remove = false;             // get
    std::string directory;           // list: of the HTML page, or ""; sync: the Maildir
    std::string file;                // view: a fax file of this machine, or ""
    bool prometheus = false;         // status
    bool yes = false;                // commit
    std::string recipient;           // deliver
    bool may_prompt = true;          // false: a password is never asked for
    typed_word_t typed;              // completion
    std::string execute;             // watch: command, or ""
    double interval = 15;            // watch: seconds
    bool patient = false;            // wait for a server that is away
};

// What a command works with: an open connection, and the inbox that was asked for. Commands print results on
// standard output and the reasons of failures on standard error.
struct session {
    const options &chosen;
    inbox_client &client;
    inbox_ref inbox;
    shown_faxes shown;  // of that inbox
};

// Connects to the first host that answers. If none does, a patient command tries again until one does, and
// any other fails. The reasons are printed, once.
exit_status connect(const options &chosen, inbox_client *client);

// Connects, finds the inbox and runs the command. `anonymous`: the command needs no password and no inbox.
exit_status run(const options &chosen, exit_status (*command)(session &), bool anonymous);

// Prints why the last call failed and returns the exit status for it. `what` begins the message: "fax 17: ".
exit_status report_failure(const inbox_client &client, const std::string &what = "");

exit_status report_empty_inbox();  // prints so, and returns EXIT_NOTHING

// Begins the messages about one of several faxes: "fax 17: ".
std::string about(faxid_t id);

// Whether a word of the command line is "newest" or "oldest" instead of an id.
bool is_place_in_list(const std::string &word);

// The ids of the faxes that the user asks for, each once; all of the inbox with --all. On failure, with the
// reason printed, the exit status.
exit_status choose_faxes(session &s, std::vector<faxid_t> *ids);

// The id of the first fax that the user asks for.
exit_status choose_fax(session &s, faxid_t *id);

// Asks the server for the fax that the user means by `id`, before anything is done with it. With several
// hosts, it must have been shown under this id. On failure, with the reason printed, the exit status.
exit_status find_fax(session &s, faxid_t id, fax_entry *fax);

// Runs `act` for each fax. One that fails does not keep the others from their turn, unless the server is
// lost. Returns the highest exit status.
template <class Act> exit_status for_each_fax(const std::vector<faxid_t> &ids, Act act)
{
    exit_status worst = EXIT_DONE;
    for (const faxid_t id : ids) {
        const exit_status status = act(id);
        if (status == EXIT_UNREACHABLE)
            return status;
        worst = std::max(worst, status);
    }
    return worst;
}

// The handle of the incoming inbox called `name`: by its description, compared as loosely as the server does,
// or by its handle. Descriptions come first, since people know those. Empty if there is none.
std::string handle_of(const std::vector<incoming_inbox> &inboxes, const std::string &name);

// What the user can do about a failure, or "".
std::string cure_for(const client_failure &failure);

}  // namespace faxtray
