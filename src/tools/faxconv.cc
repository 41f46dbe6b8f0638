// faxconv: the command that re-codes fax files and shows what is in them. Here is its command line.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "document/pbm.h"
#include "faxfile/fax_params.h"
#include "tools/fax_info.h"
#include "tools/recode.h"
#include "util/command_output.h"
#include "util/standard_options.h"

namespace faxtray {

static constexpr const char *footer = R"(
Without --to the fax is re-coded in place; the file is then whole, the old one or the new.

Exit status:
  0  done
  1  refused or failed; the file is as it was
  2  wrong command line)";

enum exit_status { EXIT_DONE = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

namespace {

struct options {
    std::string file, coding, to, pbm;
    bool force = false, info = false, json = false;
};

constexpr struct {
    const char *name;
    int df;
} codings[] = {{"mh", DF_MH}, {"mr", DF_MR}, {"mmr", DF_MMR}};

}  // namespace

// Does what was asked for. False with a message on standard error.
static bool run(const options &chosen)
{
    // A coding excludes the other actions; --info and --pbm may come together.
    for (const auto &coding : codings) {
        if (chosen.coding == coding.name)
            return chosen.to.empty() ? recode_in_place(chosen.file, coding.df, chosen.force)
                                     : recode_to(chosen.file, chosen.to, coding.df);
    }
    bool done = !chosen.info || print_fax_info(chosen.file, chosen.json);
    return done && (chosen.pbm.empty() || write_pbm_pages(chosen.file, chosen.pbm));
}

// Returns the exit status.
static int parse_and_run(int argc, char **argv)
{
    options chosen;
    CLI::App app("Re-codes a fax file, or shows what is in it.", "faxconv");
    app.footer(footer);
    app.set_version_flag("--version", version_text("faxconv"), "Print the version and exit");
    app.add_option("FILE", chosen.file, "The fax file")->required()->type_name("");
    auto *coding = app.add_option("CODING", chosen.coding, "mh, mr or mmr: what it becomes")->type_name("");
    auto *to = app.add_option("--to", chosen.to,
                              "Put the re-coded fax there (- for standard output) and leave FILE alone");
    auto *info = app.add_flag("--info", chosen.info, "Print the header and what the pages are like");
    auto *pbm = app.add_option("--pbm", chosen.pbm, "Write the pages to PREFIX-001.pbm and so on");
    coding->check(CLI::IsMember({"mh", "mr", "mmr"}).description(""));
    to->type_name("OUT")->needs(coding);
    app.add_flag("-f,--force", chosen.force, "Drop what follows the pages that the header counts")
        ->needs(coding);
    info->excludes(coding);
    pbm->type_name("PREFIX")->excludes(coding);
    app.add_flag("--json", chosen.json, "Print JSON")->needs(info);
    // CLI11 cannot say "one of these three" of an argument and two options.
    app.final_callback([&] {
        if (!*coding && !*info && !*pbm)
            throw CLI::RequiredError("CODING, --info or --pbm");
    });
    // CLI11 reports help and mistakes by exceptions; app.exit() prints them.
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    }
    return run(chosen) ? EXIT_DONE : EXIT_FAILED;
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    return faxtray::run_command(argc, argv, faxtray::parse_and_run, faxtray::EXIT_FAILED);
}
