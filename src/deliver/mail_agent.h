// mail_agent: runs the system's mail agent, "/usr/lib/sendmail -om ADDRESS", and makes values for the headers
// of its messages.
#pragma once

#include <cstdio>
#include <string>

namespace faxtray {

// One run of the agent, for one message. Kept: the address is pasted into the shell's command unquoted; it
// comes from the administrators' own files.
//
// If the agent ends early, writes to it fail quietly; its exit status shows it.
class mail_agent {
public:
    // `function` is the caller's name in messages. A null address counts as "". A command of more than 4095
    // characters is refused with E2BIG, never cut.
    mail_agent(const char *function, const char *address);
    ~mail_agent();  // ends the message and waits for the agent; an exit status other than 0 is logged
    mail_agent(const mail_agent &) = delete;
    mail_agent &operator=(const mail_agent &) = delete;

    FILE *stream() const { return stream_; }  // null, with errno in error(), if the agent could not be run
    int error() const { return error_; }
    const char *command() const { return command_.c_str(); }

private:
    const char *function_;
    std::string address_, command_;
    FILE *stream_ = nullptr;
    int error_ = 0;
};

// The sender's address: server_mail_from of the registry's record "admin", or the default if that is missing,
// empty or 512 characters or longer. A static buffer, valid until the next call.
const char *mail_get_mail_from();

// `value` (null: "") as one line of a header: line ends become blanks, since the text after one would be read
// as another header.
std::string header_value(const char *value);

}  // namespace faxtray
