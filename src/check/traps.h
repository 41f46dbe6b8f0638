// traps: what an administrator may write, or a machine lack, that the daemon takes otherwise than was meant,
// without a word. faxtray-check(8) shows this table.
#pragma once

#include <string_view>

namespace faxtray {

enum level_t { WARNING, ERROR };

struct trap_t {
    const char *name;  // for scripts
    level_t level;     // ERROR: what was written has no effect, or not the one that it names
    const char *text;  // %1 to %4: what it is about in this place
};

// clang-format off
inline constexpr trap_t traps[] = {
    // The files.
    {"list-missing", ERROR, "there is no such list: %1"},
    {"list-unreadable", ERROR, "the list cannot be read: %1"},
    {"list-in-use", ERROR, "a program has the list open for writing: until it closes it, neither faxtrayd nor this check reads the list"},
    {"list-public", WARNING, "every user of this host can read the list and the passwords' hashes in it: give it mode 0600 or 0640"},

    // Lines.
    {"byte-order-mark", ERROR, "a byte order mark begins the file, so that its first line is no section line and %1 ignored: save the file without the mark"},
    {"no-section", ERROR, "no section has begun: from here on %1 ignored"},
    {"no-name", ERROR, "this line does not begin with a name: the line and the rest of its section, %1, are ignored"},
    {"no-bracket", ERROR, "this section line has no ']': it begins no section, and %1 after it are ignored"},
    {"after-key", WARNING, "what follows the ']' is ignored: settings begin on the next line"},
    {"no-equals", ERROR, "the name [%1] is not followed by '=': the rest of the line is ignored, and the value is empty"},
    {"line-too-long", ERROR, "the line has more than 8318 characters: the rest is read as another line"},
    {"line-ends-early", ERROR, "a carriage return or null byte in the middle of the line ends it: the rest is ignored"},
    {"name-too-long", ERROR, "the name has more than 63 characters: it is cut to [%1]"},
    {"value-too-long", ERROR, "the value of %1 has more than 511 characters: the rest is cut off"},
    {"comment-in-value", WARNING, "the ';' or '#' that touches the value of %1 begins a comment: if it is part of the value, put a backslash before it, else a blank"},
    {"open-quote", WARNING, "the value of %1 begins with a quote, which is removed, and does not end with one: note that ';' and '#' end a value between quotes, too"},
    {"repeated-attribute", WARNING, "%1 was set on line %2 already: this line takes its place"},
    {"raw-section", WARNING, "the name of the section begins with '__': quotes, backslashes and comments become part of its values"},

    // Attributes and values.
    {"misspelt-attribute", ERROR, "[%1] is no attribute, and the line has no effect: did you mean %2?"},
    {"unknown-attribute", WARNING, "nothing in this server reads the attribute [%1]"},
    {"bad-value", ERROR, "%1 cannot be [%2], and %3%4"},
    {"unknown-event", WARNING, "[%1] is no event and is ignored%2"},
    {"never-among-events", WARNING, "never counts wherever it stands: none of the other events is notified"},
    {"notify-exec", WARNING, "notices cannot be sent by exec: none is sent"},
    {"no-number", WARNING, "%1 is no number: 5 is used"},
    {"no-limit", WARNING, "0 or less means no limit: every such entry is mailed"},
    {"counts-as-no", WARNING, "%1 counts as no: only words that begin with y or t mean yes"},
    {"coded-as-mh", WARNING, "%1 is delivered in MH coding, as g3 is"},
    {"no-hash", ERROR, "this is no hash as 'faxtray passwd' prints it, so that nobody can log in"},
    {"no-address", ERROR, "[%1] is no mail address: nothing can be sent there"},
    {"bad-path", ERROR, "a path cannot hold white space or control characters: %1"},
    {"relative-root", WARNING, "the inboxes are below the directory in which faxtrayd is started: started elsewhere, it makes new, empty ones; write the whole path"},
    {"admin-only", WARNING, "%1 counts in the section [admin] only"},
    {"shared-setting", WARNING, "%1 in the section [default] is that of every user without one"},

    // Users.
    {"empty-name", ERROR, "a section without a name is ignored"},
    {"name-end", ERROR, "[%1] ends in punctuation: such a name equals none, not even itself, and the user cannot log in or be delivered to"},
    {"same-user", ERROR, "[%1] and [%2] on line %3 are one user: this section takes the place of that one"},
    {"not-special", ERROR, "[%1] is neither the section [%2], which must be spelled so, nor a user: it is ignored"},
    {"second-section", ERROR, "only the first section [%1], on line %2, counts"},
    {"comma-in-name", WARNING, "no group can have [%1] as a member: a comma separates names"},
    {"no-password", WARNING, "[%1] has no password and is admitted with any, or with FAXTRAY_STRICT never: set the one that 'faxtray passwd' prints"},
    {"no-method", WARNING, "[%1] has no delivery_method: no inbox, and no fax can be delivered"},
    {"mail-without-address", ERROR, "[%1] gets faxes by mail and has no email_address: every delivery fails"},
    {"exec-without-command", ERROR, "exec is not followed by ':' and a command: every delivery fails"},
    {"exec-with-inbox", WARNING, "the command's text holds the word faxtray, so that [%1] has an inbox as well, into which nothing is delivered"},
    {"no-command", WARNING, "there is no command [%1] that can be executed"},
    {"notices-without-address", WARNING, "[%1] wants notices and has no email_address: none is sent"},
    {"admin-without-notices", WARNING, "admin_notify_level asks for mail about the exception log, but %1: none is sent"},
    {"invalid-inbox", ERROR, "the inbox of [%1] cannot be named: its path leads above / or is too long"},
    {"same-inbox", ERROR, "[%1] and [%2] have the same inbox, %3: each can read and remove the other's faxes"},
    {"inbox-is-root", ERROR, "nothing of the name [%1] can be part of a path, so that its inbox is the root of all inboxes: set delivery_dir"},
    {"inbox-is-incoming", ERROR, "the inbox of [%1] is an incoming directory, %2: the user reads and removes all faxes that arrive there"},
    {"lists-in-inbox", ERROR, "the lists are in %1: there they are served, and can be removed, as faxes"},
    {"root-unusable", ERROR, "the root of the inboxes, %1, %2"},
    {"inbox-unusable", ERROR, "[%1] has no inbox: %2 %3"},

    // Groups.
    {"no-member", ERROR, "the group has no members: nothing can be delivered to it"},
    {"unknown-member", ERROR, "the member [%1] is no user of this list"},
    {"nested-group", ERROR, "the member [%1] is a group itself: nothing is delivered to it"},
    {"unserved-member", ERROR, "no fax can be delivered to the member [%1]: see line %2"},
    {"hidden-member", WARNING, "the member [%1] is kept from forwarders by fax_forwarding, and gets the group's faxes all the same"},
    {"repeated-member", WARNING, "the member [%1] is named twice and gets each fax twice"},
    {"group-with-inbox", WARNING, "the group has an inbox into which nothing is delivered: write 'delivery_method =' in its section"},

    // Forwarders.
    {"forwarder-without-inbox", ERROR, "[%1] forwards for nobody: a forwarder's delivery_method must be exactly faxtray"},
    {"claim-unknown", ERROR, "no incoming inbox has the name [%1]%2"},
    {"claim-taken", ERROR, "[%1] has a forwarder already, [%2]"},
    {"claim-ignored", ERROR, "[%1] is not even looked at: only the first forwarder may have several inboxes, of the others only the first name counts"},
    {"unclaimed-inbox", WARNING, "nobody forwards for the incoming inbox [%1], %2: its faxes are out of reach"},

    // Lines of MODEMS.info.
    {"same-line", WARNING, "[%1] has a section on line %2 already: programs that ask for the line find that one only"},
    {"not-default", WARNING, "[%1] is a line: only [default], spelled so, holds the settings of all lines"},
    {"modem-value", WARNING, "%1 cannot be [%2]: the programs that send and receive refuse it or take their default"},
    {"flag-is-on", WARNING, "%1 is on: only false and FALSE mean off"},
    {"relative-incoming-root", ERROR, "incoming_root is no absolute path: the default is used instead"},
    {"invalid-incoming", ERROR, "the incoming directory of [%1] cannot be determined: lines that use it have no inbox"},
    {"default-directory", WARNING, "[%1] sets incoming_root but no incoming_dir: its directory is that of the defaults, %2"},
    {"incoming-is-root", ERROR, "an empty incoming_dir is the root itself, %1: every file there is served as a fax"},
    {"incoming-unusable", ERROR, "[%1] has no inbox: %2 %3"},
    {"same-inbox-name", ERROR, "the incoming inbox %1 has the name [%2], too: only one of the two can be claimed by it"},
    {"unclaimable-name", ERROR, "no forwarder can claim [%1]: %2"},
    {"ignored-name", WARNING, "the inbox is called [%1], as line %2 says, since lines that share a directory have one inbox"},

    // The machine.
    {"bad-home", WARNING, "ONDRIXHOME is no absolute path, %1: the lists and directories depend on where faxtrayd is started"},
    {"bad-listen", ERROR, "FAXTRAY_LISTEN [%1] is not [ADDRESS][:PORT]: faxtrayd does not start"},
    {"work-unusable", ERROR, "the work directory, %1, %2: faxtrayd cannot write its logs there (option -W)"},
    {"temp-unusable", ERROR, "the directory for temporary files, %1 (ONDRIXTMP), %2: short names, as delivery_naming 8.3 has them, cannot be made"},
    {"no-converter", ERROR, "faxes are to be delivered as %1, and the converter %2 is not found: those deliveries fail"},
    {"no-mail-agent", ERROR, "there is no mail agent %1, but %2"},
    {"no-host-name", WARNING, "the name of this host, %1, does not resolve to an IPv4 address: clients that use it do not find the server"},
    {"no-rpcbind", ERROR, "rpcbind does not answer (%1): faxtrayd cannot start, and clients do not find it"},
    {"stale-registration", WARNING, "faxtrayd is registered at port %1 by %2 and does not answer there: until it is started, clients wait in vain"},
    {"foreign-registration", ERROR, "%2 has registered a server under faxtrayd's number, at port %1: rpcbind will refuse faxtrayd"},
    {"no-registry", WARNING, "no registry daemon answers: without one, such as faxregd, no notices about exceptions are sent, and all mail comes from Ondrix_server"},
    {"foreign-registry", ERROR, "faxtrayd does not believe the registry daemon: %1"},
    {"registry-without-admin", ERROR, "the registry daemon does not know the user admin (%1): no notices about exceptions are sent"},
    {"other-registry", WARNING, "the registry daemon says that admin's %1 is [%2]: it reads another list, or an older one"},
};
// clang-format on

// The row of that name; one that is not there does not compile.
consteval const trap_t *trap(std::string_view name)
{
    for (const trap_t &row : traps)
        if (row.name == name)
            return &row;
    throw "no such trap";
}

}  // namespace faxtray
