// faxtray-expire: the command that removes old faxes. Here is its command line.
#include <CLI/CLI.hpp>
#include <clocale>
#include <cstdio>
#include <ctime>

#include "tools/expiry.h"
#include "util/command_output.h"
#include "util/settings.h"
#include "util/standard_options.h"

namespace faxtray {

static constexpr const char *footer = R"(
An INBOX is the name of a user, or the description or handle of an incoming inbox.
Run it on the server, as the user of faxtrayd and with its environment.

Exit status:
  0  done
  1  something could not be removed
  2  wrong command line, or no such inbox: nothing was removed
  3  no faxtrayd reached, or the connection was lost)";

enum exit_status { EXIT_DONE = 0, EXIT_FAILED = 1, EXIT_USAGE = 2, EXIT_UNREACHABLE = 3 };

static int run(const expiry_t &wish, const std::vector<std::string> &inboxes)
{
    // The list is read as the daemon reads it, in the C locale; names are printed in it, too.
    setlocale(LC_ALL, "C");
    switch (expire(wish, inboxes)) {
    case expiry_result::DONE:
        return EXIT_DONE;
    case expiry_result::FAILED:
        return EXIT_FAILED;
    case expiry_result::REFUSED:
        return EXIT_USAGE;
    default:
        return EXIT_UNREACHABLE;
    }
}

// Returns the exit status.
static int parse_and_run(int argc, char **argv)
{
    expiry_t wish;
    long days = 0;
    std::string work = dvWork_dir;
    std::vector<std::string> inboxes;
    CLI::App app("Removes the faxes of inboxes that are older than so many days.", "faxtray-expire");
    app.footer(footer);
    app.set_version_flag("--version", version_text("faxtray-expire"), "Print the version and exit");
    app.add_option("--older", days, "Remove what is older than this")
        ->check(CLI::Range(1, 36500).description(""))
        ->type_name("DAYS")
        ->required();
    app.add_flag("--dry-run", wish.dry_run, "Print what would be removed, and remove nothing");
    app.add_option("-H,--host", wish.host, "This host, by the address at which faxtrayd listens")
        ->type_name("HOST")
        ->capture_default_str();
    app.add_option("-W", work, "The daemon's work directory")->type_name("DIRECTORY")->capture_default_str();
    app.add_option("INBOX", inboxes, "Whose faxes")->type_name("")->required();
    // CLI11 reports help and mistakes by exceptions; app.exit() prints them.
    try {
        app.parse(argc, argv);
        if (work.size() >= sizeof dvWork_dir)
            throw CLI::ValidationError("-W", "too long");
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    snprintf(dvWork_dir, sizeof dvWork_dir, "%s", work.c_str());
    wish.before = time(nullptr) - days * 24 * 60 * 60;
    return run(wish, inboxes);
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    return faxtray::run_command(argc, argv, faxtray::parse_and_run, faxtray::EXIT_FAILED);
}
