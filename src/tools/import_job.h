// import_job: one document becomes one fax, as the command line of faxtray-import says.
#pragma once

#include <string>

#include "document/fax_maker.h"
#include "document/open_document.h"
#include "tools/incoming.h"

namespace faxtray {

struct import_job_t {
    fax_wishes_t wishes;
    open_settings_t opening;
    bool problem = false;
    std::string modem, modem_list, into;  // where to; "" for what the command line does not say
};

// The directory that the job's faxes go to. False with a message on standard error.
bool destination_of(const import_job_t &job, incoming_t *incoming);

// Makes a fax of the document `fd` in the empty regular file `out`. What decoders print goes to standard
// error. False with the reason in `why`.
bool make_fax_of(const import_job_t &job, unique_fd fd, int out, const ending_signals_held &signals,
                 long *pages, reason_t *why);

// Each imports the document at `path`, "-" being standard input, and returns true, or false with a message on
// standard error and no file left. A signal that ends the program takes effect at the next page.

// Into that directory; the path of the fax is printed.
bool import_into(const import_job_t &job, const std::string &path, const incoming_t &incoming);

// Into the file `to`, which is replaced if it is a regular file; "-" is standard output, which gets the fax
// once it is whole.
bool import_to(const import_job_t &job, const std::string &path, const std::string &to);

}  // namespace faxtray
