// The agent's exit status is only logged: by the time it is known the message has left our hands, and the
// agent may well have queued it. Only an agent that we had to end counts as failed.
#include "deliver/mail_agent.h"

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "config/attributes.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "registry/regd_client.h"
#include "util/access.h"
#include "util/child_process.h"
#include "util/shell_word.h"
#include "util/site_programs.h"
#include "util/text.h"

namespace faxtray {

static constexpr char agent_option[] = " -om";
static constexpr size_t longest_command = 4095;
static constexpr char default_sender[] = "Ondrix_server";

static int fax_mail_status;  // for take_fax_mail_status()

int take_fax_mail_status()
{
    return std::exchange(fax_mail_status, 0);
}

int mail_agent::add_recipients()
{
    static constexpr char blanks[] = " \t\n\v\f\r";
    int error = EINVAL;  // until there is a word
    for (size_t at = 0, end = 0; (at = address_.find_first_not_of(blanks, end)) != address_.npos;) {
        end = std::min(address_.find_first_of(blanks, at), address_.size());
        command_ += ' ';
        command_ += shell_word(address_.substr(at, end - at));
        if (address_[at] == '-')
            return EINVAL;
        error = 0;
    }
    // The shell and the agent have limits of their own; one below both makes the refusal ours, with a reason.
    return command_.size() > longest_command ? E2BIG : error;
}

mail_agent::mail_agent(mail_kind kind, const char *function, const char *address)
    : kind_(kind), function_(function), address_(address ? address : ""),
      command_(std::string(mail_agent_file) + agent_option)
{
    error_ = add_recipients();
    // Without an agent the shell would start all the same, and its exit status look like the agent's.
    if (error_ == 0)
        error_ = execution_error(mail_agent_file);
    if (error_ != 0)
        return;
    stream_ = child_popen(command_.c_str(), "w");
    error_ = stream_ ? 0 : errno;
}

// The status as a shell's "$?" shows it: the exit status, or 128 plus the number of the signal; -1 if it was
// lost.
static int exit_code(int wait_status)
{
    if (wait_status == -1)
        return -1;
    return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

mail_agent::~mail_agent()
{
    finish();
}

bool mail_agent::finish()
{
    if (!stream_)
        return error_ == 0;
    const int status = exit_code(child_pclose(std::exchange(stream_, nullptr)));
    if (status == -1 && errno == ETIMEDOUT) {
        error_ = ETIMEDOUT;
        return false;
    }
    if (kind_ == mail_kind::fax)
        fax_mail_status = status;
    if (status != 0)
        log_and_trace({ELOG_WARNING, ELOG_FILE}, "%s: mail agent exit status %d for [%s]\n", function_,
                      status, address_.c_str());
    return true;
}

const char *mail_get_mail_from()
{
    static char sender[512];
    snprintf(sender, sizeof sender, "%s", default_sender);

    // Mail is sent all the same if the registry does not answer, from the default sender.
    regd_handle_t *registry = regd_open(nullptr, 1);
    if (!registry) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr},
                      "mail:  Could not open connection to info server.\n");
        return sender;
    }
    // The address is copied before the handle is closed, since the record is the handle's.
    const av_list_t *admin = regd_get_ui_entry(registry, regd_credentials(), "admin");
    const char *wanted = admin ? av_getv(admin, as_get_attr(AS_SERVER_MAIL_FROM)) : nullptr;
    // An address that does not fit is not used at all: cut short, it would be somebody else's.
    if (!is_empty(wanted) && strlen(wanted) < sizeof sender)
        snprintf(sender, sizeof sender, "%s", wanted);
    regd_close(registry);
    if (!admin)
        log_and_trace({ELOG_WARNING, elog_file_and_stderr}, "mail:  Could not get the admin record.\n");
    return sender;
}

std::string header_value(const char *value)
{
    std::string line = value ? value : "";
    std::replace_if(
        line.begin(), line.end(), [](char ch) { return ch == '\n' || ch == '\r'; }, ' ');
    return line;
}

}  // namespace faxtray
