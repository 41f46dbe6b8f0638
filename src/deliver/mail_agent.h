// mail_agent: the system's mail agent, "/usr/lib/sendmail -om ADDRESS", and what goes into its messages'
// headers.
#pragma once

#include <cstdio>
#include <string>

namespace faxtray {

// One run of the agent for one message. Kept: the address, which comes from the administrators' own files,
// is pasted into the shell's command as it stands.
//
// The agent may end early: writing to it then fails quietly, and its exit status tells.
class mail_agent {
public:
    // `function` is who mails, for messages. A null address counts as "". A command too long to be sure of
    // is refused with E2BIG, never cut.
    mail_agent(const char *function, const char *address);
    ~mail_agent();  // ends the message and awaits the agent; an exit status other than 0 is logged
    mail_agent(const mail_agent &) = delete;
    mail_agent &operator=(const mail_agent &) = delete;

    FILE *stream() const { return stream_; }  // null, with errno in error(), when the agent could not be run
    int error() const { return error_; }
    const char *command() const { return command_.c_str(); }

private:
    const char *function_;
    std::string address_, command_;
    FILE *stream_ = nullptr;
    int error_ = 0;
};

// The sender's address: server_mail_from of the registry's record "admin", or else the default. Static,
// until the next call.
const char *mail_get_mail_from();

// `value` (null: "") as one line of a header: a line end in it would begin a header of its own.
std::string header_value(const char *value);

}  // namespace faxtray
