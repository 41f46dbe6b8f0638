// Every failure is printed with what the user can do about it.
#include "client/client_session.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <unordered_set>

#include "client/growing_pause.h"
#include "client/hosts.h"
#include "client/password.h"
#include "config/munged_name.h"
#include "util/command_output.h"

namespace faxtray {

// Failures.

// Cures by error code and, where a code has several messages, by a fragment of the message.
static constexpr struct {
    int code;
    const char *fragment, *cure;
} cures[] = {
    {IE_BAD_RECIPIENT, "recipient", "faxtray recipients lists who may receive"},
    {IE_BAD_RECIPIENT, "inbox", "faxtray inboxes lists yours"},
    {IE_BAD_PASSWORD, "", "check --password-file, or FAXTRAY_PASSWORD_FILE, or type it again"},
    {IE_SEND_FAILED, "", "the fax is still in the inbox; the server's exception log says more"},
    {IE_GROUP_SEND_FAILED, "", "the fax is still in the inbox; the server's exception log says more"},
    {IE_INVALID, "user name", "check -u; the user needs an inbox in the server's USER_LIST.info"},
    {IE_INVALID, "inbox name", "the server's modems have changed: faxtray inboxes lists yours"},
    {IE_INVALID, "fax", "ids change when faxtrayd restarts or its lists do: list again"},
    {IE_NOT_DF, "", "the server's USER_LIST.info names forwarders; faxtray inboxes lists yours"},
    {IE_STALE, "", "the user's entry has changed on the server: list again"},
    {IE_SYSTEM, "", "the server's log and traces say more"},
    {IE_STATE, "", "the server could not read its lists or the inbox: its log says why"},
};

std::string cure_for(const client_failure &failure)
{
    if (failure.kind != client_failure::SERVER)
        return "";  // inbox_client's own messages contain the cure
    for (const auto &row : cures) {
        if (row.code == failure.code && failure.message.find(row.fragment) != std::string::npos)
            return row.cure;
    }
    return "";
}

exit_status report_failure(const inbox_client &client, const std::string &what)
{
    const client_failure &why = client.failure();
    fprintf(stderr, "faxtray: %s%s", what.c_str(), printable_lines(why.message).c_str());
    if (why.kind == client_failure::SERVER)
        fprintf(stderr, " (code %d)", why.code);
    // A cure gets a line of its own, so that the server's message stays as it is.
    std::string cure = cure_for(why);
    fprintf(stderr, "%s%s\n", cure.empty() ? "" : "\nfaxtray: ", cure.c_str());
    switch (why.kind) {
    case client_failure::SERVER:
    case client_failure::MISMATCH:
        return EXIT_REFUSED;
    case client_failure::STOPPED:
        return EXIT_LOCAL;
    default:
        return EXIT_UNREACHABLE;
    }
}

// Faxes.

bool is_place_in_list(const std::string &word)
{
    return word == "newest" || word == "oldest";
}

exit_status report_empty_inbox()
{
    fprintf(stderr, "faxtray: the inbox is empty\n");
    return EXIT_NOTHING;
}

std::string about(faxid_t id)
{
    return "fax " + std::to_string(id) + ": ";
}

// "newest" and "oldest" are the last and the first fax that the list command prints.
exit_status choose_faxes(session &s, std::vector<faxid_t> *ids)
{
    listing inbox;
    const std::vector<std::string> &words = s.chosen.faxes;
    const bool listed = s.chosen.all || std::any_of(words.begin(), words.end(), is_place_in_list);
    if (listed && !s.client.list(s.inbox, &inbox))
        return report_failure(s.client);
    if (listed && inbox.faxes.empty())
        return report_empty_inbox();
    std::vector<faxid_t> chosen;
    if (s.chosen.all) {
        s.shown.replace(inbox.faxes);
        for (const fax_entry &fax : inbox.faxes)
            chosen.push_back(fax.id);
    }
    for (const std::string &word : words) {
        if (is_place_in_list(word)) {
            const fax_entry &fax = word == "newest" ? inbox.faxes.back() : inbox.faxes.front();
            s.shown.add(fax);
            chosen.push_back(fax.id);
        } else {
            chosen.push_back(static_cast<faxid_t>(strtoul(word.c_str(), nullptr, 10)));
        }
    }
    // A fax that is fetched and removed is not there a second time.
    std::unordered_set<faxid_t> known;
    for (const faxid_t id : chosen)
        if (known.insert(id).second)
            ids->push_back(id);
    return EXIT_DONE;
}

exit_status choose_fax(session &s, faxid_t *id)
{
    std::vector<faxid_t> ids;
    const exit_status status = choose_faxes(s, &ids);
    if (status == EXIT_DONE)
        *id = ids.front();
    return status;
}

exit_status find_fax(session &s, faxid_t id, fax_entry *fax)
{
    // Another host may have given the id to another fax, and it was there that the user has seen it.
    if (s.shown.lacks(id)) {
        fprintf(stderr,
                "faxtray: %seach host has ids of its own, and no list has shown this one: list again, or "
                "name one host\n",
                about(id).c_str());
        return EXIT_OTHER_FAX;
    }
    if (!s.client.find(s.inbox, id, fax))
        return report_failure(s.client, about(id));
    if (s.shown.differs(*fax)) {
        fprintf(stderr, "faxtray: %sthat id now means %s: list again\n", about(id).c_str(),
                printable(fax->name).c_str());
        return EXIT_OTHER_FAX;
    }
    s.shown.add(*fax);
    return EXIT_DONE;
}

// Passwords and inboxes.

// The caller's password as a hash, from the file or the terminal; "" if there is neither. False, with the
// reason printed, if it cannot be read.
static bool find_password(const options &chosen, std::string *hash)
{
    std::string password;
    if (!chosen.password_file.empty()) {
        if (!read_password_file(chosen.password_file, &password))
            return false;
    } else if (chosen.may_prompt && have_terminal()) {
        if (!ask_password(std::string("Password of ") + chosen.user + " (Return for none): ", &password))
            return false;
    }
    return hash_password(password, hash);
}

std::string handle_of(const std::vector<incoming_inbox> &inboxes, const std::string &name)
{
    for (const incoming_inbox &inbox : inboxes) {
        if (inbox.description == name || munged_strcmp(inbox.description.c_str(), name.c_str()) == 0)
            return inbox.handle;
    }
    for (const incoming_inbox &inbox : inboxes) {
        if (inbox.handle == name)
            return inbox.handle;
    }
    return "";
}

// Finds the inbox asked for on the command line. On failure, with the reason printed, the exit status.
static exit_status choose_inbox(const options &chosen, inbox_client &client, inbox_ref *inbox)
{
    if (chosen.inbox.empty())
        return EXIT_DONE;
    std::vector<incoming_inbox> inboxes;
    if (!client.get_df(&inboxes))
        return report_failure(client);
    std::string handle = handle_of(inboxes, chosen.inbox);
    if (handle.empty()) {
        fprintf(stderr, "faxtray: %s forwards for no inbox [%s]: faxtray inboxes lists the inboxes\n",
                chosen.user.c_str(), chosen.inbox.c_str());
        return EXIT_REFUSED;
    }
    *inbox = handle;
    return EXIT_DONE;
}

exit_status connect(const options &chosen, inbox_client *client)
{
    std::vector<std::string> away;
    for (growing_pause pause(chosen.interval);; pause.wait()) {
        const bool connected =
            connect_to_one(client, hosts_for(chosen.host, chosen.user), chosen.timeout, &away);
        for (size_t i = 0; i < away.size() && !pause.waited(); i++)
            fprintf(stderr, "faxtray: %s\n", printable(away[i]).c_str());
        if (connected) {
            if (pause.waited() || !away.empty())
                fprintf(stderr, "faxtray: asking host %s %s\n", printable(client->host()).c_str(),
                        pause.waited() ? "again" : "instead");
            return EXIT_DONE;
        }
        if (!chosen.patient)
            return EXIT_UNREACHABLE;
    }
}

exit_status run(const options &chosen, exit_status (*command)(session &), bool anonymous)
{
    // The connection comes first: nobody is to type a password for a server that is not there.
    inbox_client client({chosen.user, "", 0}, chosen.timeout);
    if (exit_status status = connect(chosen, &client); status != EXIT_DONE)
        return status;
    std::string hash;
    if (!anonymous && !find_password(chosen, &hash))
        return EXIT_LOCAL;
    client.set_password_hash(hash);
    inbox_ref inbox;
    exit_status found = anonymous ? EXIT_DONE : choose_inbox(chosen, client, &inbox);
    if (found != EXIT_DONE)
        return found;
    session s = {chosen, client, inbox, shown_faxes(hosts_for(chosen.host, chosen.user), chosen.user, inbox)};
    return command(s);
}

}  // namespace faxtray
