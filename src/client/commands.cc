// The commands of faxtray, each a few calls to the server and what is printed about them. Every failure is
// printed with what the user can do about it.
#include "client/commands.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "client/output.h"
#include "client/password.h"
#include "config/munged_name.h"
#include "disk/whole_file.h"
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

// Prints why the last call failed and returns the exit status for it. `what` begins the message: "fax 17: ".
static exit_status report_failure(const inbox_client &client, const std::string &what = "")
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

// Commands that only look.

// Prints a whole listing. It is remembered first: a script may use the ids before this command ends.
static void show(session &s, const std::deque<fax_entry> &faxes)
{
    s.shown.replace(faxes);
    if (s.chosen.json)
        print_faxes_json(faxes);
    else
        print_faxes(faxes);
}

// The whole inbox is read before anything is printed: a listing that breaks off prints nothing that a script
// could take for all there is.
exit_status list_command(session &s)
{
    listing all;
    if (!s.client.list(s.inbox, &all))
        return report_failure(s.client);
    show(s, all.faxes);
    return EXIT_DONE;
}

exit_status count_command(session &s)
{
    u_int count = 0;
    if (!s.client.get_fax_count(s.inbox, &count))
        return report_failure(s.client);
    if (s.chosen.json)
        print_json({{"count", count}});
    else
        printf("%u\n", count);
    return EXIT_DONE;
}

// Begins the messages about one of several faxes.
static std::string about(faxid_t id)
{
    return "fax " + std::to_string(id) + ": ";
}

// Asks the server for the fax that the user means by `id`, before anything is done with it. On failure, with
// the reason printed, the exit status.
static exit_status find_fax(session &s, faxid_t id, fax_entry *fax)
{
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

exit_status info_command(session &s)
{
    // The two ways do not see the same: the server's oldest fax is the oldest that can be read.
    std::optional<fax_entry> fax;
    if (s.chosen.ids.empty()) {
        if (!s.client.get_fax_info(s.inbox, &fax))
            return report_failure(s.client);
        if (fax)
            s.shown.add(*fax);
    } else if (exit_status status = find_fax(s, s.chosen.ids[0], &fax.emplace()); status != EXIT_DONE) {
        return status;
    }
    if (!fax) {
        fprintf(stderr, "faxtray: the inbox is empty\n");
        return EXIT_NOTHING;
    }
    if (s.chosen.json)
        print_json(to_json(*fax));
    else
        print_fax(*fax);
    return EXIT_DONE;
}

exit_status rev_command(session &s)
{
    revision rev;
    if (!s.client.trayd_rev(&rev))
        return report_failure(s.client);
    if (s.chosen.json)
        print_json({{"major", rev.major}, {"minor", rev.minor}, {"revision", rev.text}});
    else
        printf("protocol %d.%d, %s\n", rev.major, rev.minor, printable(rev.text).c_str());
    return EXIT_DONE;
}

exit_status status_command(session &s)
{
    settings_list status;
    if (!s.client.get_status(&status))
        return report_failure(s.client);
    if (s.chosen.json) {
        nlohmann::json object = nlohmann::json::object();
        for (const auto &[name, value] : status)
            object[name] = value;
        print_json(object);
        return EXIT_DONE;
    }
    printf("faxtrayd at host %s answers\n", s.chosen.host.c_str());
    for (const auto &[name, value] : status)
        printf("%s = %s\n", printable(name).c_str(), printable(value).c_str());
    return EXIT_DONE;
}

exit_status inboxes_command(session &s)
{
    std::vector<incoming_inbox> inboxes;
    if (!s.client.get_df(&inboxes))
        return report_failure(s.client);
    if (s.chosen.json) {
        nlohmann::json array = nlohmann::json::array();
        for (const incoming_inbox &inbox : inboxes)
            array.push_back({{"handle", inbox.handle}, {"description", inbox.description}});
        print_json(array);
        return EXIT_DONE;
    }
    // Names come from the server's files and are printed like all strangers' text.
    printf("%-8s  %s\n", "HANDLE", "DESCRIPTION");
    for (const incoming_inbox &inbox : inboxes)
        printf("%-8s  %s\n", printable(inbox.handle).c_str(), printable(inbox.description).c_str());
    return EXIT_DONE;
}

exit_status recipients_command(session &s)
{
    recipient_list list;
    if (!s.client.get_ui(0, &list))
        return report_failure(s.client);
    if (s.chosen.json) {
        nlohmann::json array = nlohmann::json::array();
        for (const recipient &who : list.recipients)
            array.push_back({{"name", who.name}, {"label", who.label}, {"is_group", who.is_group}});
        print_json(array);
        return EXIT_DONE;
    }
    printf("%-5s  %-16s  %s\n", "KIND", "NAME", "LABEL");
    for (const recipient &who : list.recipients)
        printf("%-5s  %-16s  %s\n", who.is_group ? "group" : "user", printable(who.name).c_str(),
               printable(who.label).c_str());
    return EXIT_DONE;
}

// Commands that fetch.

static bool is_directory(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Fetches one fax into a file of its own, or to standard output.
static exit_status get_one(session &s, faxid_t id)
{
    fax_entry fax;
    if (exit_status status = find_fax(s, id, &fax); status != EXIT_DONE)
        return status;

    // The name is the server's choice, so it is only ever used as a plain name in a directory of the user's
    // choice.
    std::string target = s.chosen.output.empty() ? file_name_for(fax) : s.chosen.output;
    if (is_directory(target))
        target.append("/").append(file_name_for(fax));

    // The file gets its name only once the whole fax is on disk; until then a failure or a signal removes it.
    whole_file file;
    if (!file.begin(target, s.chosen.force))
        return EXIT_LOCAL;
    bool fetched;
    {  // the bar is off the screen before anything else is printed
        progress_bar bar(printable(fax.name), fax.size);
        fetched = s.client.fetch(s.inbox, fax, [&](const char *bytes, size_t n) {
            bar.add(n);
            return file.write(bytes, n);
        });
    }
    if (!fetched)  // a receiver that stopped has printed why
        return s.client.failure().kind == client_failure::STOPPED ? EXIT_LOCAL
                                                                  : report_failure(s.client, about(id));
    if (!file.keep())
        return EXIT_LOCAL;
    if (target != "-")
        printf("%s\n", printable(target).c_str());
    return EXIT_DONE;
}

exit_status get_command(session &s)
{
    // Refused before the first fax is fetched: the second would replace it, or fail.
    if (s.chosen.ids.size() > 1 && !s.chosen.output.empty() && !is_directory(s.chosen.output)) {
        fprintf(stderr, "faxtray: several faxes need a directory for -o\n");
        return EXIT_USAGE;
    }
    // One fax that fails does not keep back the others, unless the server is lost.
    exit_status worst = EXIT_DONE;
    for (faxid_t id : s.chosen.ids) {
        exit_status status = get_one(s, id);
        if (status == EXIT_UNREACHABLE)
            return status;
        worst = std::max(worst, status);
    }
    return worst;
}

// Commands that remove.

// A fax in the words that say what has been done with it.
static std::string named(const fax_entry &fax)
{
    return printable(fax.name) + (fax.sender.empty() ? "" : " (sender " + printable(fax.sender) + ")");
}

static exit_status rm_one(session &s, faxid_t id, std::deque<fax_entry> *removed)
{
    fax_entry fax;
    if (exit_status status = find_fax(s, id, &fax); status != EXIT_DONE)
        return status;
    if (!s.client.commit_fax(s.inbox, id))
        return report_failure(s.client, about(id));
    if (!s.chosen.json)
        printf("removed %s\n", named(fax).c_str());
    removed->push_back(std::move(fax));
    return EXIT_DONE;
}

// As with get, one fax that cannot be removed does not keep the others.
exit_status rm_command(session &s)
{
    exit_status worst = EXIT_DONE;
    std::deque<fax_entry> removed;
    for (faxid_t id : s.chosen.ids) {
        exit_status status = rm_one(s, id, &removed);
        if (status == EXIT_UNREACHABLE) {
            worst = status;
            break;
        }
        worst = std::max(worst, status);
    }
    if (s.chosen.json)
        print_faxes_json(removed);
    return worst;
}

// Anything but "y" is no, the end of the input too.
static bool confirmed(size_t faxes)
{
    fprintf(stderr, "Remove %zu fax%s from the server? [y/N] ", faxes, faxes == 1 ? "" : "es");
    int answer = getchar();
    return answer == 'y' || answer == 'Y';
}

exit_status commit_command(session &s)
{
    if (!s.chosen.yes && !isatty(STDIN_FILENO)) {
        fprintf(stderr, "faxtray: commit asks first, and there is no terminal: use --yes\n");
        return EXIT_USAGE;
    }
    // The server remembers what has been listed and removes that, so this listing is what is to be confirmed.
    listing all;
    if (!s.client.list(s.inbox, &all))
        return report_failure(s.client);
    if (all.faxes.empty()) {
        fprintf(stderr, "faxtray: the inbox is empty\n");
        return EXIT_NOTHING;
    }
    s.shown.replace(all.faxes);
    if (!s.chosen.json)
        print_faxes(all.faxes);
    fflush(stdout);  // before the question on standard error
    if (!s.chosen.yes && !confirmed(all.faxes.size())) {
        fprintf(stderr, "faxtray: nothing removed\n");
        return EXIT_NOTHING;
    }
    // For the server a listing of a single fax does not count as shown, so that fax is removed by its id.
    bool done = all.faxes.size() == 1 ? s.client.commit_fax(s.inbox, all.faxes[0].id)
                                      : s.client.commit_index(s.inbox);
    if (!done)
        return report_failure(s.client);
    if (s.chosen.json)
        print_faxes_json(all.faxes);
    return EXIT_DONE;
}

// Seconds: a day. The server answers only after it has carried out the deliveries asked for before, and has
// converted and mailed the fax for every member of a group; a program that it runs may take 15 minutes. To
// give up earlier would not stop it, only tempt the user to deliver the fax twice.
static constexpr int delivery_timeout = 24 * 60 * 60;

exit_status deliver_command(session &s)
{
    // Users' own inboxes hold faxes that have been delivered already.
    if (!s.inbox) {
        fprintf(stderr, "faxtray: deliver takes a fax from an incoming inbox: name it with --inbox\n");
        return EXIT_USAGE;
    }
    fax_entry fax;
    if (exit_status status = find_fax(s, s.chosen.ids[0], &fax); status != EXIT_DONE)
        return status;
    s.client.set_timeout(std::max(s.chosen.timeout, delivery_timeout));
    bool delivered = false;
    {
        const waiting_line shown("waiting for the delivery to " + printable(s.chosen.recipient));
        delivered = s.client.deliver_fax(*s.inbox, fax.id, s.chosen.recipient);
    }
    if (!delivered)
        return report_failure(s.client);
    if (s.chosen.json)
        print_json(to_json(fax));
    else
        printf("delivered %s to %s\n", named(fax).c_str(), printable(s.chosen.recipient).c_str());
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
    } else if (have_terminal()) {
        if (!ask_password(std::string("Password of ") + chosen.user + " (Return for none): ", &password))
            return false;
    }
    return hash_password(password, hash);
}

exit_status passwd_command(const options &chosen)
{
    // The password is typed twice only where it cannot be seen.
    std::string password, again, hash;
    if (!chosen.password_file.empty()) {
        if (!read_password_file(chosen.password_file, &password))
            return EXIT_LOCAL;
    } else {
        if (!ask_password("New password: ", &password) || !ask_password("Again: ", &again))
            return EXIT_LOCAL;
        if (password != again) {  // typed unseen: a slip would lock the user out
            fprintf(stderr, "faxtray: the passwords differ\n");
            return EXIT_USAGE;
        }
    }
    if (!hash_password(password, &hash))
        return EXIT_USAGE;
    printf("password = %s\n", hash.c_str());
    return EXIT_DONE;
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

exit_status run(const options &chosen, exit_status (*command)(session &), bool anonymous)
{
    // The connection comes first: nobody is to type a password for a server that is not there.
    inbox_client client({chosen.user, "", 0}, chosen.timeout);
    if (!client.connect(chosen.host))
        return report_failure(client);
    std::string hash;
    if (!anonymous && !find_password(chosen, &hash))
        return EXIT_LOCAL;
    client.set_password_hash(hash);
    inbox_ref inbox;
    exit_status found = anonymous ? EXIT_DONE : choose_inbox(chosen, client, &inbox);
    if (found != EXIT_DONE)
        return found;
    session s = {chosen, client, inbox, shown_faxes(chosen.host, chosen.user, inbox)};
    return command(s);
}

}  // namespace faxtray
