#include "tools/converter.h"

#include <getopt.h>

#include <cstdio>

#include "disk/whole_file.h"
#include "util/command_output.h"
#include "util/standard_options.h"

namespace faxtray {

enum exit_status { EXIT_DONE = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

static const converter_t *running;  // run_command() passes its function nothing but the arguments

static int usage(FILE *stream, int status)
{
    fprintf(stream,
            "usage: %s\n"
            "  --help     print this\n"
            "  --version  print the version\n",
            running->usage);
    return status;
}

static int run(int argc, char **argv)
{
    std::string output;
    for (int option; (option = getopt_long(argc, argv, running->options, help_and_version, nullptr)) != -1;) {
        switch (option) {
        case 'h':
            return usage(stdout, EXIT_DONE);
        case 'V':
            puts(version_text(running->name).c_str());
            return EXIT_DONE;
        case '?':
            return usage(stderr, EXIT_USAGE);
        default:
            output = optarg ? optarg : "";
        }
    }
    if (argc - optind != running->operands)
        return usage(stderr, EXIT_USAGE);
    if (running->operands == 2)
        output = argv[optind + 1];
    return running->convert(argv[optind], output) ? EXIT_DONE : EXIT_FAILED;
}

int run_converter(int argc, char **argv, const converter_t &converter)
{
    running = &converter;
    return run_command(argc, argv, run, EXIT_FAILED);
}

bool convert_to_document(const std::string &input, const std::string &output,
                         bool (*write)(fax_pages_t *fax, page_range_t pages, int fd))
{
    fax_pages_t fax;
    whole_file document;
    return open_fax_pages(input, &fax) && document.begin(output, true) && write(&fax, {}, document.fd()) &&
           document.keep();
}

}  // namespace faxtray
