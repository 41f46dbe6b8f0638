// inbox_client: a client of faxtrayd's inbox program, over TCP and IPv4: one function for each procedure, and
// on top of these, functions that list whole inboxes and fetch whole faxes.
//
// Every call returns true, or false with the reason in failure(). One object is one connection, and is used
// by one thread at a time. A program that uses it ignores SIGPIPE, since a server may close the connection.
#pragma once

#include <rpc/rpc.h>

#include <ctime>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "protocol/records.h"
#include "protocol/xdr_records.h"
#include "util/owned.h"

namespace faxtray {

struct fax_entry {
    faxid_t id = 0;  // valid until faxtrayd restarts or the user's entry changes
    std::string name, sender, subaddress, pwd_frame;
    int pages = -1;  // -1: not known
    bool is_fax = false;
    u_int size = 0;  // bytes; 2^32 - 1 for that many and more
    time_t mtime = 0;
};

struct listing {
    u_int check_value = 0;
    std::deque<fax_entry> faxes;  // oldest first; a deque, since a vector would need twice the room to grow
};

// Which part of an index to list.
struct index_slice {
    faxid_t start = 0;  // 0: the oldest fax
    int how = 1;        // 1 forward, 0 backward
    int count = 0;      // 0, or more than 100: 100
    u_int check_value = 0;
};

// Who a fax can be delivered to: a user, or a group of users.
struct recipient {
    std::string name, label;
    bool is_group = false;
};

struct recipient_list {
    u_int check_value = 0;
    std::vector<recipient> recipients;
};

// An inbox of unrouted faxes. People know the description; requests name the handle.
struct incoming_inbox {
    std::string description, handle;
};

struct revision {
    int major = 0, minor = 0;
    std::string text;
};

using settings_list = std::vector<std::pair<std::string, std::string>>;

// Who asks. The password itself never leaves the client, but its hash serves as well to whoever overhears it.
struct login {
    std::string user;
    std::string password_hash;  // from passwd(); empty for none
    u_int check_value = 0;      // of the user's entry as last seen; 0: no check
};

// Why the last call failed.
struct client_failure {
    enum kind_t {
        NONE,
        TRANSPORT,  // the server was not reached or not understood; the message says what to do
        SERVER,     // the server refused: its code, errno and message
        STOPPED,    // the receiver of a fax's bytes returned false
        MISMATCH,   // a fax has not the size that the listing says
    };
    kind_t kind = NONE;
    int code = 0;  // IE_..., for SERVER
    int sys_errno = 0;
    std::string message;
};

// Which inbox: the caller's own, or the incoming inbox of that handle.
using inbox_ref = std::optional<std::string>;

// Receives the bytes of a fax, in order; returns false to stop.
using byte_sink = std::function<bool(const char *bytes, size_t n)>;

class inbox_client {
public:
    explicit inbox_client(login who, int timeout_seconds = 25);
    inbox_client(const inbox_client &) = delete;
    inbox_client &operator=(const inbox_client &) = delete;

    // The user's password may become known only after connecting.
    void set_password_hash(const std::string &hash);
    void set_timeout(int seconds) { timeout_.tv_sec = seconds; }  // for the calls that follow
    // Asks the host's port mapper for faxtrayd and connects, all within the timeout.
    bool connect(const std::string &host);
    const std::string &host() const { return host_; }  // the one last connected to
    const client_failure &failure() const { return failure_; }

    // The procedures, with the results of the server's records as C++ values.
    bool null_call();               // whether the server answers at all
    bool trayd_rev(revision *rev);  // needs no valid login
    // One page of the index; an error with code 13 if its check value is still that of the slice.
    bool get_index(const inbox_ref &inbox, const index_slice &slice, listing *list);
    // Removes all faxes that have been listed since the server loaded the inbox, by any client.
    bool commit_index(const inbox_ref &inbox);
    // The oldest fax that can be read; none if there is no such fax.
    bool get_fax_info(const inbox_ref &inbox, std::optional<fax_entry> *oldest);
    // One chunk of a fax: up to `size` bytes (at most MAX_READ_SIZE) from byte `offset` on; none at the end.
    bool get_fax(const inbox_ref &inbox, faxid_t id, u_int size, u_int offset, const byte_sink &sink);
    bool commit_fax(const inbox_ref &inbox, faxid_t id);  // removes one fax
    // Delivers a fax of an incoming inbox to a user or group; returns when it has reached all members, which
    // may take hours: the server carries out one delivery after another.
    bool deliver_fax(const std::string &inbox, faxid_t id, const std::string &recipient);
    bool get_ui(u_int check_value, recipient_list *list);  // who a forwarder can deliver to
    bool get_fax_count(const inbox_ref &inbox, u_int *count);
    bool get_df(std::vector<incoming_inbox> *inboxes);  // which the user forwards for
    bool get_status(settings_list *status);             // empty if the server has nothing to say
    bool trayd_shutdown();                              // the server only answers, and goes on

    // The whole inbox, page by page. Starts again if fax ids change meanwhile, up to three times. Fails if
    // the server lists more than 10 million faxes, or 512 MiB of names.
    bool list(const inbox_ref &inbox, listing *all);
    // The faxes that have come after the fax `last`, which was the last of a listing with that check value; 0
    // for both after a listing of none. Fails with IE_UNCHANGED if the check value is still the same (0: not
    // compared), and with IE_INVALID if `last` has gone or has got a new id: then list all.
    bool list_after(const inbox_ref &inbox, faxid_t last, u_int check_value, listing *later);
    // One fax of the listing. For commit_index a listing of a single fax does not count as shown.
    bool find(const inbox_ref &inbox, faxid_t id, fax_entry *fax);
    // All bytes of a fax. Fails unless there are as many as the listing says, and for faxes of 4 GiB and
    // more; never more than those are passed on.
    bool fetch(const inbox_ref &inbox, const fax_entry &fax, const byte_sink &sink);

private:
    struct listed_t {  // of an inbox, so far
        std::unordered_set<faxid_t> ids;
        size_t text = 0;  // bytes of names, senders and the like
        bool whole = false;
    };
    static void destroy(CLIENT *client);
    using client_ptr = std::unique_ptr<CLIENT, deleter<destroy>>;

    template <class Request, class Take> bool call(u_long procedure,
                                                   bool_t (*encode)(XDR *, Request *) noexcept,
                                                   Request *request, res_type_t expected, Take take);
    template <class Take> bool call_with_identity(u_long procedure, res_type_t expected, Take take);
    bool call_failed(u_long procedure, clnt_stat status);
    bool fail(client_failure::kind_t kind, std::string message);
    bool append_page(const inbox_ref &inbox, listing *all, listed_t *listed, u_int check_value = 0);

    std::string connect_problem() const;

    login login_;
    pw_req_t pw_;  // its strings are login_'s
    timeval timeout_;
    std::string host_;
    client_ptr client_;
    client_failure failure_;
};

// The names between commas in `text`, without the white space around them. Empty names are skipped.
std::vector<std::string> comma_separated(const std::string &text);

}  // namespace faxtray
