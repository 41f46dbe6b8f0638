// mail_agent: runs the system's mail agent, "/usr/lib/sendmail -om ADDRESS", and makes values for the headers
// of its messages.
#pragma once

#include <cstdio>
#include <string>

namespace faxtray {

enum class mail_kind { fax, notice };

// One run of the agent, for one message.
//
// If the agent ends early, writes to it fail quietly; its exit status shows it.
class mail_agent {
public:
    // `function` is the caller's name in messages. The agent gets each word of `address` as a recipient, and
    // the shell sees nothing else in it (util/shell_word.h). Refused with EINVAL: an address without a word
    // (null counts as "") and a word that begins with "-", which would be an option; with E2BIG: a command of
    // more than 4095 characters, which is never cut; with ENOENT, EACCES...: an agent that is not there or
    // cannot be run.
    mail_agent(mail_kind kind, const char *function, const char *address);
    ~mail_agent();  // finishes, where that has not been done
    mail_agent(const mail_agent &) = delete;
    mail_agent &operator=(const mail_agent &) = delete;

    // Ends the message and waits for the agent; an exit status other than 0 is logged. False, with ETIMEDOUT
    // in error(), if the agent took too long and was ended: then the message may be lost, or cut.
    bool finish();

    FILE *stream() const { return stream_; }  // null, with errno in error(), if the agent could not be run
    int error() const { return error_; }
    const char *command() const { return command_.c_str(); }

private:
    int add_recipients();  // to the command; 0, or an errno

    mail_kind kind_;
    const char *function_;
    std::string address_, command_;
    FILE *stream_ = nullptr;
    int error_ = 0;
};

// The agent's exit status for the last fax that was mailed, as a shell's "$?" shows it: 0 also if none was
// since the last call, -1 if it was lost. A delivery by mail counts as successful whatever it is; this is for
// records of it.
int take_fax_mail_status();

// The sender's address: server_mail_from of the registry's record "admin", or the default if that is missing,
// empty or 512 characters or longer. A static buffer, valid until the next call.
const char *mail_get_mail_from();

// `value` (null: "") as one line of a header: line ends become blanks, since the text after one would be read
// as another header.
std::string header_value(const char *value);

}  // namespace faxtray
