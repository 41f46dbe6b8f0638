// faxtray-check: the command that tells administrators what their lists say to the daemon. Here is its
// command line.
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>

#include "check/effective.h"
#include "check/lists_check.h"
#include "check/machine_checks.h"
#include "util/command_output.h"
#include "util/standard_options.h"

namespace faxtray {

static constexpr const char *footer = R"(
What may be used is what the user may use who runs this: run it as the daemon's user, or as root with --as.

Exit status:
  0  nothing found, or shown
  1  warnings
  2  errors
  3  wrong command line, no such user, or the check failed)";

enum exit_status { EXIT_CLEAN = 0, EXIT_WARNINGS = 1, EXIT_ERRORS = 2, EXIT_FAILED = 3 };

namespace {

struct options {
    std::string users, modems, work = "work", as, user;
    bool lists = false, json = false, changed = false, show = false;
};

}  // namespace

// Becomes that user for good. False with a message.
static bool become(const std::string &name)
{
    const struct ::passwd *entry = getpwnam(name.c_str());
    if (!entry) {
        fprintf(stderr, "faxtray-check: There is no user [%s]\n", name.c_str());
        return false;
    }
    if (initgroups(name.c_str(), entry->pw_gid) == 0 && setgid(entry->pw_gid) == 0 &&
        setuid(entry->pw_uid) == 0)
        return true;
    fprintf(stderr, "faxtray-check: Can't become user [%s]: %s\n", name.c_str(), strerror(errno));
    return false;
}

static int check(const options &chosen, const seen_users_t &users, problems_t &problems)
{
    seen_modems_t modems;
    see_modems(chosen.modems.c_str(), problems, &modems);
    check_lists(users, modems, !chosen.lists, problems);
    if (!chosen.lists)
        check_machine(users, chosen.work.c_str(), problems);

    int status = EXIT_CLEAN;
    for (const problem_t &problem : problems.sorted())
        status = std::max<int>(status, problem.trap->level == ERROR ? EXIT_ERRORS : EXIT_WARNINGS);
    return status;
}

static int run(const options &chosen)
{
    if (!chosen.as.empty() && !become(chosen.as))
        return EXIT_FAILED;
    // The lists are read as the daemon reads them, in the C locale, and shown in the user's.
    setlocale(LC_ALL, "C");
    seen_users_t users;
    problems_t problems;
    see_users(chosen.users.c_str(), problems, &users);
    const int status = chosen.show ? EXIT_CLEAN : check(chosen, users, problems);
    setlocale(LC_ALL, "");
    if (!chosen.show) {
        (chosen.json ? print_problems_json : print_problems)(problems.sorted());
        return status;
    }
    if (!users.is_read)
        for (const problem_t &problem : problems.sorted())
            fprintf(stderr, "faxtray-check: %s: %s\n", printable(users.path).c_str(), problem.text.c_str());
    if (show_settings(users, chosen.user, chosen.changed, chosen.json))
        return EXIT_CLEAN;
    fprintf(stderr, "faxtray-check: There is no user [%s] in %s\n", printable(chosen.user).c_str(),
            printable(users.path).c_str());
    return EXIT_FAILED;
}

// Returns the exit status.
static int parse_and_run(int argc, char **argv)
{
    options chosen;
    CLI::App app("Tells what the fax server's lists really say, and what this machine lacks.",
                 "faxtray-check");
    app.footer(footer);
    app.set_version_flag("--version", version_text("faxtray-check"), "Print the version and exit");
    app.fallthrough();
    app.add_option("-U", chosen.users, "The list of fax users")->type_name("USERS");
    app.add_option("-M", chosen.modems, "The list of fax lines")->type_name("MODEMS");
    app.add_option("-W", chosen.work, "The daemon's work directory")
        ->type_name("DIRECTORY")
        ->capture_default_str();
    app.add_option("--as", chosen.as, "Check as that user of the system (for root)")->type_name("USER");
    app.add_flag("--lists", chosen.lists, "Check the lists alone, not this machine and its directories");
    app.add_flag("--json", chosen.json, "Print JSON");
    CLI::App *show =
        app.add_subcommand("show", "Print the settings that users have in the end, and from where");
    show->add_option("USER", chosen.user, "One user, or default (default: all users)")->type_name("");
    show->add_flag("--changed", chosen.changed, "Leave out the built-in settings");
    // CLI11 reports help and mistakes by exceptions; app.exit() prints them.
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? EXIT_CLEAN : EXIT_FAILED;
    }
    chosen.show = show->parsed();
    return run(chosen);
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    return faxtray::run_command(argc, argv, faxtray::parse_and_run, faxtray::EXIT_FAILED);
}
