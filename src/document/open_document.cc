// PDF and PostScript become TIFF files, so that there is one reader of their pages.
#include "document/open_document.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "disk/unnamed_file.h"
#include "document/pbm_reader.h"
#include "document/png_reader.h"
#include "document/tiff_reader.h"
#include "util/io.h"

namespace faxtray {

using namespace std::string_view_literals;
using std::string_view;

namespace {

enum class format { NONE, TIFF, PNG, PBM, PAGES };  // PAGES: PDF or PostScript

}  // namespace

// PDF may have some other bytes in front, and PostScript for a printer its end-of-job.
static format format_of(string_view start)
{
    for (const string_view magic : {"II*\0"sv, "MM\0*"sv, "II+\0"sv, "MM\0+"sv})
        if (start.substr(0, 4) == magic)
            return format::TIFF;
    if (start.substr(0, 8) == "\x89PNG\r\n\x1a\n"sv)
        return format::PNG;
    if (start.substr(0, 2) == "P4"sv || start.substr(0, 2) == "P1"sv)
        return format::PBM;
    if (start.substr(0, 2) == "%!"sv || start.substr(0, 3) == "\x04%!"sv ||
        start.find("%PDF-"sv) != start.npos)
        return format::PAGES;
    return format::NONE;
}

// The same document in a file without a name, if it is in none that can be read twice.
static unique_fd as_file(unique_fd fd, reason_t *why)
{
    struct stat st;
    const bool known = fd && fstat(fd.get(), &st) == 0;
    if (known && S_ISREG(st.st_mode))
        return fd;
    if (known && S_ISDIR(st.st_mode)) {
        *why = {"a directory"};
        return {};
    }
    unique_fd file = make_unnamed_file();
    if (known && file && copy_rest(fd.get(), file.get()))
        return file;
    *why = {std::string("it can't be copied to a file: ") + strerror(errno), true};
    return {};
}

// Has gs draw the document into a TIFF file, which is open when its name goes with the scratch directory. One
// page more than is read shows that there are too many, and ends gs.
static page_source_ptr draw(unique_fd fd, const open_settings_t &settings, const ending_signals_held &signals,
                            reason_t *why)
{
    scratch_directory scratch;
    if (!scratch.make_in(settings.temporary)) {
        *why = {"there is no directory for gs in " + settings.temporary + ": " + strerror(errno), true};
        return nullptr;
    }
    const std::string document = scratch.path() + "/document", drawn = scratch.path() + "/pages.tif";
    {
        const unique_fd copy(open(document.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!copy || !copy_rest(fd.get(), copy.get())) {
            *why = {std::string("it can't be copied for gs: ") + strerror(errno), true};
            return nullptr;
        }
    }
    if (!run_ghostscript(scratch.path(),
                         {"-sDEVICE=tiffg4", "-r204x196", "-dMaxStripSize=0", "-dFillOrder=2",
                          "-dLastPage=" + std::to_string(most_read_pages + 1), "-sOutputFile=pages.tif",
                          "document"},
                         settings.seconds, signals, why))
        return nullptr;
    unique_fd pages(open(drawn.c_str(), O_RDONLY | O_CLOEXEC));
    if (!pages) {
        *why = {"no pages: " + ghostscript_complaint(scratch.path())};
        return nullptr;
    }
    return open_tiff(std::move(pages), &why->text);
}

page_source_ptr open_document(unique_fd fd, const open_settings_t &settings,
                              const ending_signals_held &signals, reason_t *why)
{
    fd = as_file(std::move(fd), why);
    if (!fd)
        return nullptr;
    char start[1024];
    ssize_t n = -1;
    if (lseek(fd.get(), 0, SEEK_SET) == 0)
        n = read_full(fd.get(), start, sizeof start);
    if (n < 0 || lseek(fd.get(), 0, SEEK_SET) != 0) {
        *why = {strerror(errno)};
        return nullptr;
    }
    switch (format_of({start, static_cast<size_t>(n)})) {
    case format::TIFF:
        return open_tiff(std::move(fd), &why->text);
    case format::PNG:
        return open_png(std::move(fd), &why->text);
    case format::PBM:
        return open_pbm(std::move(fd), &why->text);
    case format::PAGES:
        return draw(std::move(fd), settings, signals, why);
    case format::NONE:
        break;
    }
    *why = {n == 0 ? "empty" : "not an image: neither TIFF, PNG, PBM, PDF nor PostScript"};
    return nullptr;
}

}  // namespace faxtray
