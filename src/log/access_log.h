// access_log: who read, removed and delivered which fax, and who gave a wrong password. One line an event in
// the file "access_log" of the work directory:
//
//     time=2026-11-22T08:30:37Z event=fetch peer=192.0.2.17 port=40312 user=anna procedure=5 id=1795228381
//         fax=/var/fax/faxtrayes/anna/x0.fax result=ok                                        (one line)
//
// Values hold no blanks: in names, every byte that is a blank, quote, backslash or not printable ASCII is
// written \xHH. Times are UTC, so that they sort, and mean the same when clocks change.
//
// Nothing here fails: a line that cannot be written is counted, and the log file says so once.
#pragma once

#include <ctime>

namespace faxtray {

// The request that the lines below belong to; until there is one, nothing is logged. A null text is left out
// of the lines. The texts are copied; longer ones than an address and a name of 255 bytes are cut.
struct access_request_t {
    time_t when;              // it came; minutes (see access_refusal) go by this clock
    const char *peer, *port;  // the client's address
    const char *user;         // as whom it acts, or claims to
    unsigned procedure;
    unsigned fax_id;  // 0: the request names none
};
void access_request(const access_request_t &request);

// A chunk of `length` bytes has been read at `offset`. The first of a read is logged: at offset 0, or
// elsewhere when this client has not read from this fax before. `checked`: the user's password was.
void access_fetch(const char *path, unsigned offset, unsigned length, bool checked);

// A fax was removed, or `error` (an errno) is why not. `fax_id`: for requests that remove many.
void access_removal(const char *path, unsigned fax_id, int error);

// A fax was delivered to one recipient, or was not. `became`: the new file, null if there is none. `result`
// is "ok", or a word for what went wrong; `detail` says more in few words joined by hyphens, as
// "agent-status-75", or is null.
void access_delivery(const char *path, const char *recipient, const char *became, const char *result,
                     const char *detail);

// The password was wrong, or for the reason in `detail` none would do. After 10 lines of an address within a
// minute the others are counted, and a line with their number follows once the minute is over.
void access_refusal(const char *detail);

}  // namespace faxtray
