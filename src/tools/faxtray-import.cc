// faxtray-import: the command that makes faxes of documents. Here is its command line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "faxfile/fax_params.h"
#include "tools/import_job.h"
#include "tools/watch.h"
#include "util/command_output.h"
#include "util/paths.h"
#include "util/standard_options.h"

namespace faxtray {

static constexpr const char *footer = R"(
A FILE is a TIFF, PDF, PostScript, PBM or PNG file; - is standard input.
Without --modem, --into and -o, the faxes go to the incoming directory of MODEMS.info, if there is just one.

Exit status:
  0  done
  1  a file was refused, or something failed; the other files were imported
  2  wrong command line)";

enum exit_status { EXIT_DONE = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

namespace {

struct options {
    import_job_t job;
    std::string sender, subaddress, password_frame, coding, resolution, output, watched;
    std::vector<std::string> headers, files;
};

}  // namespace

// Control characters, line feeds above all, cannot stand in a header. What the caller sent must not keep the
// fax from being imported.
static std::string header_value(std::string text)
{
    std::replace_if(
        text.begin(), text.end(), [](char c) { return (c >= 0 && c < ' ') || c == 127; }, ' ');
    return text;
}

// "NAME=VALUE" of an attribute that the caller may choose; throws for any other.
static std::pair<std::string, std::string> parse_header(const std::string &text)
{
    const size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    const bool sound =
        equals != text.npos && equals > 0 && name.find(':') == name.npos && header_value(name) == name;
    if (!sound)
        throw CLI::ValidationError("--header", "NAME=VALUE, and no colon in NAME: " + printable(text));
    for (const char *ours : {"#PAGES", "RESOLUTION", "COMPRESSION"})
        if (name == ours)
            throw CLI::ValidationError("--header", name + " says what the pages are like");
    return {name, header_value(text.substr(equals + 1))};
}

static void set_wishes(const options &chosen, const CLI::App &app, fax_wishes_t *wishes)
{
    const std::pair<const char *, const std::string &> call[] = {{"--sender", chosen.sender},
                                                                 {"--subaddress", chosen.subaddress},
                                                                 {"--password-frame", chosen.password_frame}};
    const char *names[] = {"SENDER_FAX#", "T30_SUB_FRAME", "T30_PWD_FRAME"};
    for (size_t i = 0; i < std::size(call); i++)
        if (app.count(call[i].first))
            wishes->call.emplace_back(names[i], header_value(call[i].second));
    for (const std::string &header : chosen.headers)
        wishes->others.push_back(parse_header(header));
    if (!chosen.coding.empty())
        wishes->df = chosen.coding == "mh" ? DF_MH : chosen.coding == "mr" ? DF_MR : DF_MMR;
    if (!chosen.resolution.empty())
        wishes->vr = chosen.resolution == "fine";
}

// Returns the exit status.
static int run(const options &chosen)
{
    if (!chosen.watched.empty())
        return watch(chosen.job, chosen.watched) ? EXIT_DONE : EXIT_FAILED;
    incoming_t incoming;
    if (chosen.output.empty() && !destination_of(chosen.job, &incoming))
        return EXIT_FAILED;
    bool all = true;
    for (const std::string &file : chosen.files) {
        const bool done = chosen.output.empty() ? import_into(chosen.job, file, incoming)
                                                : import_to(chosen.job, file, chosen.output);
        all = all && done;
    }
    return all ? EXIT_DONE : EXIT_FAILED;
}

// Returns the exit status.
static int parse_and_run(int argc, char **argv)
{
    options chosen;
    CLI::App app("Makes faxes of documents, and puts them where received faxes arrive.", "faxtray-import");
    app.footer(footer);
    app.set_version_flag("--version", version_text("faxtray-import"), "Print the version and exit");
    auto *files = app.add_option("FILE", chosen.files, "The documents")->type_name("");
    auto *modem =
        app.add_option("--modem", chosen.job.modem, "Put faxes into this modem's incoming directory")
            ->type_name("NAME");
    auto *into = app.add_option("--into", chosen.job.into, "Put faxes into this directory")->type_name("DIR");
    auto *output = app.add_option("-o", chosen.output, "Write the fax to this file (- for standard output)")
                       ->type_name("FILE");
    auto *watched =
        app.add_option("--watch", chosen.watched, "Import every file that comes into this directory")
            ->type_name("DIR");
    app.add_option("-M", chosen.job.modem_list, "The list of modems")->type_name("MODEMS.info");
    app.add_option("--sender", chosen.sender, "The sender's fax number")->type_name("NUMBER");
    app.add_option("--subaddress", chosen.subaddress, "The T.30 subaddress")->type_name("TEXT");
    app.add_option("--password-frame", chosen.password_frame, "The T.30 password")->type_name("TEXT");
    app.add_option("--coding", chosen.coding, "How pages are coded: mh, mr or mmr")
        ->type_name("")
        ->check(CLI::IsMember({"mh", "mr", "mmr"}).description(""));
    app.add_option("--resolution", chosen.resolution, "Lines per inch: normal (98) or fine (196)")
        ->type_name("")
        ->check(CLI::IsMember({"normal", "fine"}).description(""));
    app.add_flag("--problem", chosen.job.problem, "Mark the faxes as problem faxes");
    app.add_option("--header", chosen.headers, "Another attribute of the fax; may be given several times")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    into->excludes(modem);
    output->excludes(modem)->excludes(into)->excludes(watched);
    watched->excludes(files);
    app.final_callback([&] {
        if (chosen.files.empty() && chosen.watched.empty())
            throw CLI::RequiredError("FILE or --watch");
        if (*output && chosen.files.size() > 1)
            throw CLI::ValidationError("-o", "one FILE makes one fax");
        set_wishes(chosen, app, &chosen.job.wishes);
    });
    // CLI11 reports help and mistakes by exceptions; app.exit() prints them.
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    chosen.job.opening.temporary = temporary_directory();
    return run(chosen);
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    return faxtray::run_command(argc, argv, faxtray::parse_and_run, faxtray::EXIT_FAILED);
}
