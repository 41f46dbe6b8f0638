// Each fax is made under another name, or none, and gets its own when it is whole.
#include "tools/import_job.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "disk/unnamed_file.h"
#include "disk/whole_file.h"
#include "util/command_output.h"
#include "util/io.h"

namespace faxtray {

static bool complain(const std::string &path, const std::string &what)
{
    fprintf(stderr, "faxtray-import: %s: %s\n", path == "-" ? "standard input" : printable(path).c_str(),
            printable(what).c_str());
    return false;
}

bool destination_of(const import_job_t &job, incoming_t *incoming)
{
    if (job.into.empty())
        return find_incoming(job.modem, job.modem_list, incoming);
    *incoming = {job.into};
    return true;
}

bool make_fax_of(const import_job_t &job, unique_fd fd, int out, const ending_signals_held &signals,
                 long *pages, reason_t *why)
{
    const stdout_on_stderr no_output;
    const page_source_ptr source = open_document(std::move(fd), job.opening, signals, why);
    return source && make_fax(source.get(), job.wishes, out, signals, pages, why);
}

// Makes the fax of the document at `path` in `out`.
static bool make_fax_at(const import_job_t &job, const std::string &path, int out,
                        const ending_signals_held &signals)
{
    unique_fd fd(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)
                             : open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    if (!fd)
        return complain(path, strerror(errno));
    const waiting_line waiting("faxtray-import: " + printable(path));
    long pages;
    reason_t why;
    return make_fax_of(job, std::move(fd), out, signals, &pages, &why) || complain(path, why.text);
}

bool import_into(const import_job_t &job, const std::string &path, const incoming_t &incoming)
{
    const ending_signals_held until_done;
    staged_fax fax;
    fax.choose_name(incoming, job.problem);
    if (!fax.create())
        return complain(incoming.directory, std::string("can't create a fax there: ") + strerror(errno));
    if (!make_fax_at(job, path, fax.fd(), until_done))
        return false;
    std::string published;
    if (!fax.finish() || (published = publish_staged(fax.path())).empty())
        return complain(incoming.directory, std::string("can't put the fax there: ") + strerror(errno));
    fax.keep();
    puts(printable(published).c_str());
    return true;
}

static bool copy_to_output(int fd)
{
    char block[65536];
    ssize_t n = lseek(fd, 0, SEEK_SET);
    while (n >= 0 && (n = read_full(fd, block, sizeof block)) > 0)
        if (!write_full(STDOUT_FILENO, block, static_cast<size_t>(n)))
            n = -1;
    return n == 0 || complain("standard output", strerror(errno));
}

static bool import_to_output(const import_job_t &job, const std::string &path)
{
    const unique_fd fax = make_unnamed_file();
    if (!fax)
        return complain("temporary file", strerror(errno));
    const ending_signals_held until_done;
    return make_fax_at(job, path, fax.get(), until_done) && copy_to_output(fax.get());
}

bool import_to(const import_job_t &job, const std::string &path, const std::string &to)
{
    if (to == "-")
        return import_to_output(job, path);
    const ending_signals_held until_done;
    whole_file fax;
    return fax.begin(to, true) && make_fax_at(job, path, fax.fd(), until_done) && fax.keep();
}

}  // namespace faxtray
