// wire: ONC RPC over a socket of the test's own, byte by byte (RFC 5531, RFC 4506): a client that
// shares no code with the daemon and may misbehave.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "util/owned.h"

namespace faxtray {

// Arguments: big-endian words, strings padded to four bytes.
std::string word(uint32_t value);
std::string text(const std::string &value);
// The five fields of an identity, and the same as optional data.
std::string bare_identity(const std::string &user, const std::string &password = "",
                          uint32_t check_value = 0);
std::string identity(const std::string &user, const std::string &password = "", uint32_t check_value = 0);

// A reply, or what is known of one that did not come whole.
struct reply_t {
    int accept_stat = -1;  // 0 SUCCESS, 3 PROC_UNAVAIL, 4 GARBAGE_ARGS; -1: none came
    std::string result;    // what follows

    uint32_t at(size_t nth_word) const;
    int res_type() const { return static_cast<int>(at(0)); }
    int code() const { return res_type() == 18 ? static_cast<int>(at(1)) : 0; }  // of the error, or 0
    std::string message() const;                                                 // of the error
    std::string chunk() const;                                                   // of a read
    std::vector<uint32_t> fax_ids() const;                                       // of a listing
};

unique_fd connect_to(uint16_t port);  // of this host; empty when nobody takes it

class connection {
public:
    connection();  // to the registered daemon; see is_open()

    bool is_open() const { return static_cast<bool>(socket_); }
    int fd() const { return socket_.get(); }
    void close() { socket_.reset(); }
    bool send(const std::string &bytes) const;
    reply_t receive() const;
    reply_t call(uint32_t procedure, const std::string &arguments) const;

private:
    unique_fd socket_;
};

// One call of program 351229 as on the wire, record mark included.
std::string call_bytes(uint32_t procedure, const std::string &arguments);
reply_t call(uint32_t procedure, const std::string &arguments);  // on a connection of its own

}  // namespace faxtray
