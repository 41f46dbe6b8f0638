// faxtray: the command with which people and scripts list, fetch and remove their faxes.
#include <pwd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>

#include "client/client_config.h"
#include "client/completion.h"
#include "client/deliver_command.h"
#include "client/fax_forms.h"
#include "client/get_command.h"
#include "client/look_commands.h"
#include "client/password.h"
#include "client/remove_commands.h"
#include "client/status_command.h"
#include "client/sync_command.h"
#include "client/view_command.h"
#include "client/watch_command.h"
#include "util/command_output.h"
#include "util/standard_options.h"

namespace faxtray {

static constexpr const char *footer = R"(
A fax younger than the server's settling delay (60 seconds unless its administrator chose another) is
not listed yet. Fax ids hold until faxtrayd restarts or its user list changes.

Exit status:
  0  done
  1  the server refused, or a fax is damaged; after status: not all is well
  2  wrong command line
  3  no server reached, or the connection was lost
  4  a local file or the output failed
  5  nothing to do, or not confirmed
  6  the id means another fax by now than when it was listed)";

// The login name, as the environment or else the system has it.
static std::string default_user()
{
    if (const char *user = getenv("USER"); user && *user)
        return user;
    const struct ::passwd *entry = getpwuid(getuid());
    return entry ? entry->pw_name : "";
}

namespace {

struct command_row {
    const char *name, *help;
    exit_status (*run)(session &);  // null for commands that do without a session
    // How many faxes it takes. Those that only look take newest and oldest, too; what is removed or delivered
    // has been seen, and has an id.
    enum { NONE, FAX_MAYBE, FAX, FAXES, ID, IDS } faxes;
    void (*add_options)(CLI::App &app, CLI::App *command, options &chosen);  // its own; null for none
    exit_status (*alone)(const options &) = nullptr;  // without a session: if `run` is null, or with --file
    bool anonymous = false;
};

}  // namespace

// Options that every command takes.
static void add_common_options(CLI::App &app, options &chosen)
{
    app.add_option("-H,--host", chosen.host, "Host of faxtrayd, or several with commas between")
        ->type_name("HOST")
        ->envname("FAXTRAY_HOSTS")
        ->capture_default_str();
    app.add_option("-u,--user", chosen.user, "Whose inbox, or which forwarder")
        ->type_name("USER")
        ->capture_default_str();
    app.add_option("--inbox", chosen.inbox, "Incoming inbox, by description or handle (forwarders)")
        ->type_name("INBOX");
    app.add_option("--password-file", chosen.password_file,
                   "File with the password; without it, a prompt on the terminal, or none")
        ->type_name("FILE")
        ->envname("FAXTRAY_PASSWORD_FILE");
    app.add_option("--timeout", chosen.timeout, "Seconds to wait for the server")
        ->check(CLI::Range(1, 86400).description(""))
        ->type_name("SECONDS")
        ->capture_default_str();
    app.add_flag("--json", chosen.json, "Print JSON");
}

// The faxes that a command is about.
static void add_faxes(CLI::App *command, const command_row &row, options &chosen)
{
    // 0 is no id: to the server it means the oldest fax, which is not what a typing error should remove.
    const CLI::Validator is_id = CLI::Range(faxid_t{1}, faxid_t{0xFFFFFFFF}).description("");
    const bool by_id = row.faxes == command_row::ID || row.faxes == command_row::IDS;
    auto is_fax = [=](const std::string &word) {
        return !by_id && is_place_in_list(word) ? std::string() : is_id(word);
    };
    auto *faxes = command
                      ->add_option("FAXID", chosen.faxes,
                                   by_id ? "Id of the fax, as list prints it"
                                         : "Id of the fax, as list prints it, or newest or oldest")
                      ->check(is_fax)
                      ->type_name("");
    if (row.faxes != command_row::IDS && row.faxes != command_row::FAXES)
        faxes->expected(1)->allow_extra_args(false);
    if (row.faxes == command_row::FAXES)
        faxes->excludes(command->add_flag("--all", chosen.all, "All faxes of the inbox"));
    else if (row.faxes != command_row::FAX_MAYBE)
        faxes->required();
}

static CLI::Option *add_form(CLI::App *command, options &chosen)
{
    return command->add_option("--as", chosen.form, "Form: fax (as it is), tiff, pdf, png or pbm")
        ->check(CLI::IsMember(form_names()).description(""))
        ->type_name("FORM")
        ->capture_default_str();
}

static void add_list_options(CLI::App &, CLI::App *command, options &chosen)
{
    command->add_option("--html", chosen.directory, "Write a page with pictures into this directory")
        ->type_name("DIR");
}

static void add_watch_options(CLI::App &, CLI::App *command, options &chosen)
{
    command
        ->add_option("--exec", chosen.execute,
                     "Run this command for each, with FAXTRAY_... in its environment")
        ->type_name("COMMAND");
    auto *save =
        command->add_option("--save", chosen.output, "Fetch each into this directory")->type_name("DIR");
    add_form(command, chosen)->needs(save);
    command->add_option("--interval", chosen.interval, "Seconds between looks")
        ->check(CLI::Range(0.01, 86400.0).description(""))
        ->type_name("SECONDS")
        ->capture_default_str();
    command->add_flag("--all", chosen.all, "The first time, begin with the faxes that are there");
}

static void add_page(CLI::App *command, options &chosen, const char *help)
{
    command->add_option("--page", chosen.page, help)
        ->check(CLI::Range(1, 999999999).description(""))
        ->type_name("N");
}

static void add_get_options(CLI::App &, CLI::App *command, options &chosen)
{
    add_form(command, chosen);
    command
        ->add_option("-o,--output", chosen.output,
                     "File, directory, or - for standard output (default: the fax's own name)")
        ->type_name("PATH");
    command->add_flag("-f,--force", chosen.force, "Replace a file that exists");
    command->add_flag("--rm", chosen.remove, "Remove each fax from the server once it is on the disk");
    add_page(command, chosen, "Only this page");
}

static void add_view_options(CLI::App &, CLI::App *command, options &chosen)
{
    add_page(command, chosen, "Page that the terminal shows (default: 1), or the only one for a viewer");
    auto *file = command->add_option("--file", chosen.file, "A fax file of this machine, instead of FAXID");
    file->type_name("FILE")->excludes(command->get_option("FAXID")->required(false));
}

static void add_commit_options(CLI::App &, CLI::App *command, options &chosen)
{
    command->add_flag("-y,--yes", chosen.yes, "Do not ask");
}

static void add_sync_options(CLI::App &, CLI::App *command, options &chosen)
{
    command->add_option("--maildir", chosen.directory, "The Maildir; made if it is missing")
        ->type_name("DIR")
        ->required();
}

static void add_deliver_options(CLI::App &, CLI::App *command, options &chosen)
{
    command->add_option("RECIPIENT", chosen.recipient, "Name of a user or group")->type_name("")->required();
}

static void add_status_options(CLI::App &app, CLI::App *command, options &chosen)
{
    command->add_flag("--prometheus", chosen.prometheus, "Print metrics for Prometheus")
        ->excludes(app.get_option("--json"));
}

static exit_status run_passwd(const options &chosen)
{
    return passwd_command(chosen.password_file);
}

static constexpr command_row commands[] = {
    {"list", "List the inbox, oldest fax first", list_command, command_row::NONE, add_list_options},
    {"count", "Print how many faxes the inbox holds", count_command, command_row::NONE, nullptr},
    {"info", "Print what is known of a fax, or of the oldest", info_command, command_row::FAX_MAYBE, nullptr},
    {"get", "Fetch faxes into files", get_command, command_row::FAXES, add_get_options},
    {"view", "Show a fax, in the terminal or by a viewer", view_command, command_row::FAX, add_view_options,
     view_file_command},
    {"watch", "Tell of each new fax, once", watch_command, command_row::NONE, add_watch_options},
    {"rm", "Remove faxes from the server", rm_command, command_row::IDS, nullptr},
    {"commit", "List the inbox, ask, and remove what was listed", commit_command, command_row::NONE,
     add_commit_options},
    {"sync", "Put new faxes into a Maildir, as mail with a PDF", sync_command, command_row::NONE,
     add_sync_options},
    {"inboxes", "List the incoming inboxes that the user forwards for", inboxes_command, command_row::NONE,
     nullptr},
    {"recipients", "List the users and groups a fax can be delivered to", recipients_command,
     command_row::NONE, nullptr},
    {"deliver", "Deliver a fax of an incoming inbox to a user or group", deliver_command, command_row::ID,
     add_deliver_options},
    {"rev", "Print the server's revision", rev_command, command_row::NONE, nullptr, nullptr, true},
    {"status", "Look whether all parts of the fax service work", nullptr, command_row::NONE,
     add_status_options, status_command},
    {"passwd", "Print the password line for the server's USER_LIST.info", nullptr, command_row::NONE, nullptr,
     run_passwd},
};

// A subcommand with its arguments and its own options.
static void add_command(CLI::App &app, const command_row &row, options &chosen)
{
    CLI::App *command = app.add_subcommand(row.name, row.help);
    if (row.faxes != command_row::NONE)
        add_faxes(command, row, chosen);
    if (row.add_options)
        row.add_options(app, command, chosen);
}

// Parses the command line and runs its command. CLI11 prints help and errors itself.
static int parse_and_run(int argc, char **argv)
{
    options chosen;
    chosen.user = default_user();
    const std::string bad_config = read_client_config(&chosen);
    CLI::App app("Lists, fetches and removes the faxes that faxtrayd keeps.", "faxtray");
    app.footer(footer);
    app.set_version_flag("--version", version_text("faxtray"), "Print the version and exit");
    app.require_subcommand(1);
    app.fallthrough();  // common options may follow the command
    add_common_options(app, chosen);
    for (const command_row &row : commands)
        add_command(app, row, chosen);
    if (argc > 1 && strcmp(argv[1], "--complete") == 0)
        return complete(app, &chosen, {argv + 2, argv + argc});
    try {
        app.parse(argc, argv);
        if (app.got_subcommand("get") && chosen.faxes.empty() && !chosen.all)
            throw CLI::RequiredError("FAXID or --all");
        if (app.got_subcommand("view") && chosen.faxes.empty() && chosen.file.empty())
            throw CLI::RequiredError("FAXID or --file");
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    if (!bad_config.empty()) {  // reported only now: --help works all the same
        fprintf(stderr, "faxtray: %s\n", bad_config.c_str());
        return EXIT_USAGE;
    }
    if (app.got_subcommand("watch")) {
        chosen.patient = chosen.force = true;  // what it replaces is the same fax, from a run that was killed
        if (!chosen.output.empty() && !chosen.output.ends_with('/'))
            chosen.output += '/';  // a directory
    }
    for (const command_row &row : commands) {
        if (app.got_subcommand(row.name))
            return row.run && chosen.file.empty() ? run(chosen, row.run, row.anonymous) : row.alone(chosen);
    }
    return EXIT_USAGE;
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    return faxtray::run_command(argc, argv, faxtray::parse_and_run, faxtray::EXIT_LOCAL);
}
