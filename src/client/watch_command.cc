// A fax is dealt with in this order: saved, the command run, printed, noted as known. A kill in between has
// it dealt with again by the next run, from the start; the files of a fax have a name of its own, so that it
// then replaces only itself.
#include "client/watch_command.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <sysexits.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "client/get_command.h"
#include "client/growing_pause.h"
#include "client/hosts.h"
#include "client/known_faxes.h"
#include "client/output.h"
#include "config/munged_name.h"
#include "disk/user_directory.h"
#include "util/command_output.h"

namespace faxtray {

using steady = std::chrono::steady_clock;

// Two sets of names may have the same check value, so now and then it is not relied upon.
static constexpr unsigned checks_before_doubt = 20;
static constexpr double longest_retry = 3600;  // seconds between attempts to deal with a fax
static constexpr int sender_width = 16;

namespace {

struct retry_t {
    steady::time_point next;
    double pause;  // seconds, before the attempt after that
};

struct watch_t {
    session &s;
    const fax_form_t *form;  // null for faxes as they are
    known_faxes known;
    bool begins;  // the faxes that are there are not new
    bool connected = true;
    bool listed = false;    // the inbox has been listed by this server, up to:
    faxid_t last = 0;       // the last fax
    u_int check_value = 0;  // of that listing
    unsigned checks = 0;
    std::deque<fax_entry> waiting = {};                     // listed, new, and not dealt with yet
    std::unordered_map<std::string, retry_t> retries = {};  // of those that failed, by their lasting keys
};

}  // namespace

// What is new.

static void take_place(watch_t *watch, const listing &inbox)
{
    watch->check_value = inbox.check_value;
    if (!inbox.faxes.empty())
        watch->last = inbox.faxes.back().id;
}

// Their ids are going to be seen, and used.
static void take_new(watch_t *watch, const listing &inbox)
{
    std::deque<fax_entry> unknown;
    for (const fax_entry &fax : inbox.faxes)
        if (!watch->known.contains(fax))
            unknown.push_back(fax);
    if (!unknown.empty())
        watch->s.shown.add(unknown);
    watch->waiting.insert(watch->waiting.end(), unknown.begin(), unknown.end());
}

static bool list_all(watch_t *watch)
{
    listing inbox;
    if (!watch->s.client.list(watch->s.inbox, &inbox))
        return false;
    watch->last = 0;
    take_place(watch, inbox);
    watch->listed = true;
    watch->waiting.clear();
    if (watch->begins) {
        for (const fax_entry &fax : inbox.faxes)
            watch->known.add(fax);
        watch->begins = false;
    }
    take_new(watch, inbox);
    watch->known.forget_gone(inbox.faxes);
    return true;
}

static bool list_later(watch_t *watch)
{
    listing later;
    const u_int check_value = watch->checks % checks_before_doubt == 0 ? 0 : watch->check_value;
    if (watch->s.client.list_after(watch->s.inbox, watch->last, check_value, &later)) {
        take_place(watch, later);
        take_new(watch, later);
        return true;
    }
    const client_failure &why = watch->s.client.failure();
    if (why.kind != client_failure::SERVER)
        return false;
    return why.code == IE_UNCHANGED || list_all(watch);  // the last fax has gone, or all ids are new
}

// A client that had to move to another host goes back to its own once that answers. Nothing is said: that it
// is away was said when it went.
static void return_to_own_host(watch_t *watch)
{
    const session &s = watch->s;
    const std::string now = s.client.host();
    const std::vector<std::string> hosts = hosts_for(s.chosen.host, s.chosen.user);
    std::vector<std::string> away;
    if (now == hosts.front())
        return;
    watch->connected = connect_to_one(&s.client, hosts, s.chosen.timeout, &away);
    watch->listed = watch->listed && s.client.host() == now;
}

// Asks what is new, however often that fails. On failure, with the reason printed, the exit status: only what
// has never worked is given up.
static exit_status check(watch_t *watch)
{
    session &s = watch->s;
    const bool is_first = watch->checks++ == 0;
    if (watch->checks % checks_before_doubt == 0)
        return_to_own_host(watch);
    for (growing_pause pause(s.chosen.interval);; pause.wait()) {
        if (!watch->connected) {
            connect(s.chosen, &s.client);
            watch->connected = true;
            watch->listed = false;
        }
        if (watch->listed ? list_later(watch) : list_all(watch))
            return EXIT_DONE;
        watch->connected = s.client.failure().kind == client_failure::SERVER;
        if (is_first && watch->connected)
            return report_failure(s.client);
        if (!pause.waited())
            report_failure(s.client);
    }
}

// What is done with it.

// The fax under a name that no other fax gets: receivers use theirs again.
static fax_entry with_lasting_name(const fax_entry &fax)
{
    const std::string plain = file_name_for(fax);
    char time[32];
    tm parts;
    if (!gmtime_r(&fax.mtime, &parts) || !strftime(time, sizeof time, "%Y%m%dT%H%M%SZ-", &parts))
        time[0] = '\0';
    fax_entry named = fax;
    named.name = time + (plain == fax.name && plain.size() < 200 ? plain : lasting_name(fax));
    return named;
}

// What is no fax, or is damaged, is saved as it is.
static exit_status save_fax(watch_t *watch, const fax_entry &fax, std::vector<std::string> *files)
{
    session &s = watch->s;
    const fax_entry named = with_lasting_name(fax);
    if (!watch->form || !fax.is_fax)
        return get_fax(s, named, nullptr, files);
    const exit_status status = get_fax(s, named, watch->form, files);
    const bool is_damaged = status == EXIT_REFUSED && s.client.failure().kind == client_failure::NONE;
    return is_damaged ? get_fax(s, named, nullptr, files) : status;
}

// The command learns of the fax by its environment: nothing that strangers wrote gets into its text.
static void set_environment(const fax_entry &fax, const std::vector<std::string> &files)
{
    const std::pair<const char *, std::string> values[] = {{"FAXTRAY_FAXID", std::to_string(fax.id)},
                                                           {"FAXTRAY_NAME", fax.name},
                                                           {"FAXTRAY_SENDER", fax.sender},
                                                           {"FAXTRAY_SUBADDRESS", fax.subaddress},
                                                           {"FAXTRAY_PAGES", std::to_string(fax.pages)},
                                                           {"FAXTRAY_SIZE", std::to_string(fax.size)},
                                                           {"FAXTRAY_MTIME", std::to_string(fax.mtime)},
                                                           {"FAXTRAY_FILE", files.empty() ? "" : files[0]}};
    for (const auto &[name, value] : values)
        setenv(name, value.c_str(), 1);
}

// Runs the command. A failure is printed; it is returned only if the command is to be run again: it did not
// run to its end, or says so by EX_TEMPFAIL.
static exit_status execute(const std::string &command, const fax_entry &fax,
                           const std::vector<std::string> &files)
{
    set_environment(fax, files);
    fflush(stdout);
    // The command would inherit that these are ignored.
    signal(SIGPIPE, SIG_DFL);
    signal(SIGXFSZ, SIG_DFL);
    const int status = system(command.c_str());
    const int error = errno;
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    if (status == 0)
        return EXIT_DONE;
    const std::string begin = "faxtray: " + named(fax) + ": the command ";
    if (status < 0) {
        fprintf(stderr, "%scan't be run: %s\n", begin.c_str(), strerror(error));
        return EXIT_LOCAL;
    }
    if (WIFSIGNALED(status)) {
        if (WTERMSIG(status) == SIGINT || WTERMSIG(status) == SIGQUIT)
            raise(WTERMSIG(status));  // from the terminal, and meant for both
        fprintf(stderr, "%swas ended by signal %d\n", begin.c_str(), WTERMSIG(status));
        return EXIT_LOCAL;
    }
    const int code = WEXITSTATUS(status);
    const bool is_temporary = code == EX_TEMPFAIL || code == 126 || code == 127;  // or the shell can't run it
    fprintf(stderr, "%sended with status %d%s\n", begin.c_str(), code,
            is_temporary ? ": it is run again later" : "");
    return is_temporary ? EXIT_LOCAL : EXIT_DONE;
}

// Prints a fax that has been dealt with: a line of a table, or of JSON.
static void print(const session &s, const fax_entry &fax, const std::vector<std::string> &files)
{
    if (!s.chosen.json) {
        print_fax_row(fax, sender_width, files.empty() ? fax.name : files[0]);
        return;
    }
    nlohmann::json object = to_json(fax);
    if (!files.empty())
        object["files"] = files;
    puts(object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

static exit_status deal_with(watch_t *watch, const fax_entry &fax)
{
    session &s = watch->s;
    std::vector<std::string> files;
    exit_status status = s.chosen.output.empty() ? EXIT_DONE : save_fax(watch, fax, &files);
    if (status == EXIT_DONE && !s.chosen.execute.empty())
        status = execute(s.chosen.execute, fax, files);
    if (status != EXIT_DONE)
        return status;
    print(s, fax, files);
    watch->known.add(fax);
    return EXIT_DONE;
}

// When a fax that failed is tried again: after the interval, then after ever longer pauses.
static void put_off(watch_t *watch, const fax_entry &fax)
{
    retry_t &retry =
        watch->retries.try_emplace(lasting_key(fax), retry_t{{}, watch->s.chosen.interval}).first->second;
    retry.next = steady::now() +
                 std::chrono::duration_cast<steady::duration>(std::chrono::duration<double>(retry.pause));
    retry.pause = std::max(retry.pause, std::min(2 * retry.pause, longest_retry));
}

static bool is_put_off(const watch_t &watch, const fax_entry &fax)
{
    const auto retry = watch.retries.find(lasting_key(fax));
    return retry != watch.retries.end() && steady::now() < retry->second.next;
}

// A fax is known once its line has left: what reads our output may have ended. False, with the reason
// printed, if so. That a fax could not be noted is no reason to stop: it is tried again with the next one.
static bool settle(watch_t *watch)
{
    if (fflush(stdout) != 0) {
        fprintf(stderr, "faxtray: can't write the output: %s\n", strerror(errno));
        return false;
    }
    watch->known.save();
    return true;
}

// Of faxes that have left the inbox before they could be dealt with.
static void forget_retries(watch_t *watch)
{
    std::unordered_map<std::string, retry_t> kept;
    for (const fax_entry &fax : watch->waiting)
        if (auto retry = watch->retries.extract(lasting_key(fax)))
            kept.insert(std::move(retry));
    watch->retries = std::move(kept);
}

// Deals with the faxes whose turn it is; those that fail stay. False when standard output takes no more.
static bool deal_with_all(watch_t *watch)
{
    const bool each = !watch->s.chosen.output.empty() || !watch->s.chosen.execute.empty();
    std::deque<fax_entry> left;
    for (const fax_entry &fax : watch->waiting) {
        if (!watch->listed || is_put_off(*watch, fax)) {
            left.push_back(fax);
            continue;
        }
        const exit_status status = deal_with(watch, fax);
        if (status == EXIT_DONE) {
            watch->retries.erase(lasting_key(fax));
            if (each && !settle(watch))
                return false;
            continue;
        }
        watch->connected = status != EXIT_UNREACHABLE;
        // What the server no longer has under this id, it lists under another, or not at all.
        watch->listed = status == EXIT_LOCAL;
        if (watch->connected)
            put_off(watch, fax);
        left.push_back(fax);
    }
    watch->waiting = std::move(left);
    forget_retries(watch);
    return settle(watch);
}

// The file in which it is kept what is known: of each inbox, and of each thing that is done with its faxes.
// "" with the reason printed.
static std::string state_file(const options &chosen)
{
    const std::string directory = private_directory("XDG_STATE_HOME", ".local/state");
    if (directory.empty()) {
        fprintf(stderr, "faxtray: no directory of yours to remember faxes in: see FILES in faxtray(1)\n");
        return "";
    }
    std::error_code error;
    std::string key = group_of(hosts_for(chosen.host, chosen.user));
    for (const std::string &part :
         {munged_key(chosen.user.c_str()), munged_key(chosen.inbox.c_str()), chosen.execute,
          std::filesystem::canonical(chosen.output, error).string(), chosen.form})
        key += '\0' + part;
    char name[32];
    snprintf(name, sizeof name, "/watch-%016zx", std::hash<std::string>()(key));
    return directory + name;
}

exit_status watch_command(session &s)
{
    const std::string &directory = s.chosen.output;
    if (!directory.empty() && mkdir(directory.c_str(), 0700) != 0 &&
        !std::filesystem::is_directory(directory)) {
        fprintf(stderr, "faxtray: %s: %s\n", printable(directory).c_str(), strerror(errno));
        return EXIT_LOCAL;
    }
    watch_t watch = {s, find_form(s.chosen.form), {}, false};
    const std::string path = state_file(s.chosen);
    if (path.empty() || !watch.known.open(path))
        return EXIT_LOCAL;
    watch.begins = watch.known.first_time() && !s.chosen.all;
    for (;;) {
        if (const exit_status status = check(&watch); status != EXIT_DONE)
            return status;
        if (!deal_with_all(&watch))
            return EXIT_LOCAL;
        std::this_thread::sleep_for(std::chrono::duration<double>(s.chosen.interval));
    }
}

}  // namespace faxtray
