// converter: what the converters that deliveries call have in common: a command line as these write it, a
// file in and a file out.
#pragma once

#include <string>

#include "document/fax_pages.h"

namespace faxtray {

struct converter_t {
    const char *name, *usage;
    const char *options;  // of getopt: letters without meaning, or "f:" for the output
    int operands;         // input, output if that is no option
    bool (*convert)(const std::string &input, const std::string &output);  // the output "" if there is none
};

// Runs it as a program's main(). Returns the exit status: 0, 1 with a message on standard error, or 2 for a
// wrong command line.
int run_converter(int argc, char **argv, const converter_t &converter);

// Writes the fax file `input` as a document to `output`, whole or not at all; an old file is replaced. False
// with a message on standard error.
bool convert_to_document(const std::string &input, const std::string &output,
                         bool (*write)(fax_pages_t *fax, page_range_t pages, int fd));

}  // namespace faxtray
