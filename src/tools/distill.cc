// distill: the command that makes a PDF of PostScript, as deliveries call it: beside the PostScript, by gs.
#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "disk/whole_file.h"
#include "document/ghostscript.h"
#include "tools/converter.h"
#include "util/command_output.h"
#include "util/io.h"
#include "util/paths.h"

namespace faxtray {

static constexpr unsigned most_seconds = 600;  // less than a delivery waits, so that the reason is gs's time

// Returns false, so that a caller can return its result.
static bool refuse(const std::string &path, const std::string &why)
{
    fprintf(stderr, "distill: %s: %s\n", printable(path).c_str(), printable(why).c_str());
    return false;
}

// Whether the file begins like PostScript. gs would take other formats, too, and makes an empty PDF of an
// empty file.
static bool is_postscript(int fd)
{
    char start[2];
    return read_full(fd, start, sizeof start) == sizeof start && memcmp(start, "%!", sizeof start) == 0;
}

// Opens the PDF that gs makes; its name goes with the scratch directory. Null with a message.
static unique_fd made_by_gs(const std::string &path)
{
    const ending_signals_held until_removed;
    scratch_directory scratch;
    reason_t why;
    const c_string absolute(realpath(path.c_str(), nullptr));  // gs would take a "-" for an option
    unique_fd pdf;
    if (!absolute || !scratch.make_in(temporary_directory()))
        refuse(path, std::string("can't begin: ") + strerror(errno));
    else if (!run_ghostscript(scratch.path(),
                              {"-sDEVICE=pdfwrite", "-dAutoRotatePages=/None", "-dDownsampleMonoImages=false",
                               "-sOutputFile=document.pdf", absolute.get()},
                              most_seconds, until_removed, &why))
        refuse(path, why.text);
    else if (pdf.reset(open((scratch.path() + "/document.pdf").c_str(), O_RDONLY | O_CLOEXEC)); !pdf)
        refuse(path, "gs made no PDF");
    return pdf;
}

// "letter.pdf" of "letter.ps".
static std::string name_beside(const std::string &path)
{
    return (path.ends_with(".ps") ? path.substr(0, path.size() - 3) : path) + ".pdf";
}

static bool distill(const std::string &path, const std::string &)
{
    const unique_fd postscript(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!postscript)
        return refuse(path, strerror(errno));
    if (!is_postscript(postscript.get()))
        return refuse(path, "not PostScript");
    const unique_fd made = made_by_gs(path);
    whole_file pdf;
    return made && pdf.begin(name_beside(path), true) &&
           (copy_rest(made.get(), pdf.fd()) || refuse(path, strerror(errno))) && pdf.keep();
}

}  // namespace faxtray

static constexpr faxtray::converter_t converter = {"distill",
                                                   "distill FILE.ps\n"
                                                   "\n"
                                                   "Makes FILE.pdf of PostScript, with gs. An old file is "
                                                   "replaced.\n",
                                                   "", 1, faxtray::distill};

int main(int argc, char **argv)
{
    return faxtray::run_converter(argc, argv, converter);
}
