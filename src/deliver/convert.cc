// What a converter leaves half-way is removed: files on the way are scratch files, named in the delivery's
// note (work_note.h) as well, so that they are removed even after a crash.
#include "deliver/convert.h"

#include <sys/param.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "codec/change_format.h"
#include "config/attributes.h"
#include "disk/files.h"
#include "disk/scratch_file.h"
#include "disk/work_note.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "util/child_process.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

// Holds any command made of two paths.
using command_t = char[3 * MAXPATHLEN];

// Names

const char *get_tmp_ext(const char *name)
{
    // A dot, four digits, "tmp", and nothing after them.
    const char *dot = strrchr(last_component(name), '.');
    if (!dot)
        return nullptr;
    const char *p = dot + 1;
    while (p < dot + 5 && isdigit(static_cast<unsigned char>(*p)))
        p++;
    return p == dot + 5 && strcmp(p, "tmp") == 0 ? dot : nullptr;
}

std::string converted_name(const char *path, const char *ext)
{
    const char *tmp_ext = get_tmp_ext(path);
    std::string name(path, tmp_ext ? static_cast<size_t>(tmp_ext - path) : strlen(path));
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos && name.compare(dot, name.npos, ".fax") == 0)
        name.resize(dot);
    return name + ext;
}

// `path` with ".tif" in place of the first ".fax" of its last component and all that follows, or at its end.
static std::string copy_name(const char *path)
{
    const char *ext = strcasestr(last_component(path), ".fax");
    return (ext ? std::string(path, ext) : std::string(path)) + ".tif";
}

// TIFF

// The directory that holds "utils/tiffconv".
static const char *converter_base(char (&buffer)[MAXPATHLEN])
{
    if (const char *home = getenv("ONDRIXHOME"))
        return home;
    if (getcwd(buffer, sizeof buffer))
        return buffer;
    log_and_trace({ELOG_ERROR, ELOG_FILE}, "fax_to_tiff: Can't get working dir: %s\n", strerror(errno));
    tr_puts("fax_to_tiff:  Trying './' as working directory...\n");
    return ".";
}

// Runs the converter. True if it exits with status 0; `tiff` then holds the fax.
static bool run_tiffconv(const char *path, const char *tiff)
{
    char base[MAXPATHLEN], converter[MAXPATHLEN + 16];
    command_t command;
    snprintf(converter, sizeof converter, "%s/%s", converter_base(base), "utils/tiffconv");
    const int n = snprintf(command, sizeof command, "%s -m %s %s", converter, path, tiff);
    errno = ENAMETOOLONG;  // the reason if the command was cut, and is therefore not run
    const int status = n < static_cast<int>(sizeof command) ? child_system(command) : -1;
    if (status == -1)
        log_and_trace({ELOG_ERROR, ELOG_FILE}, "fax_to_tiff: Can't execute '%s' tiff filter for [%s]: %s\n",
                      command, path, strerror(errno));
    else if (status != 0)
        log_and_trace({ELOG_ERROR, ELOG_FILE}, "fax_to_tiff: tiffconv filter '%s' exit code %d for %s\n",
                      command, status, path);
    return status == 0;
}

int fax_to_tiff(const char *path) noexcept
try {
    // The converter writes to a file of the work directory, which then replaces the fax in one step: no
    // moment shows half a TIFF under the fax's name. Room for the name is allocated before there is a file to
    // lose.
    std::string tiff(MAXPATHLEN, '\0');
    unique_fd fd(unique_file("FDF.", tiff.data()));
    if (!fd) {
        const char *reason = strerror(errno);
        if (!tiff[0])
            fprintf(stderr, "fax_to_tiff: Can't get temp file: %s\n", reason);
        else
            fprintf(stderr, "fax_to_tiff: Can't open temp file: %s\n", reason);
        return -1;
    }
    fd.reset();
    scratch_file scratch(std::move(tiff));
    if (!run_tiffconv(path, scratch.path()))
        return -1;
    note_made(scratch.path());
    if (!cv_move(scratch.path(), path)) {
        fprintf(stderr, "fax_to_tiff: Can't rename fax file %s -> %s\n", scratch.path(), path);
        return -1;
    }
    scratch.keep();
    return 1;
} catch (const std::bad_alloc &) {
    fprintf(stderr, "fax_to_tiff: Can't get temp file: %s\n", strerror(ENOMEM));
    return -1;
}

// PDF

// Removes what is at the path that the converter will write. A stale file would pass for its output; and as
// the name is predictable and /tmp is open to all, a planted link would be written through.
static bool clear_way(const char *path)
{
    if (unlink(path) == 0 || errno == ENOENT) {
        note_will_make(path);
        return true;
    }
    trprintf("fax_to_pdf: unlink(\"%s\") failed: %s.\n", path, strerror(errno));
    return false;
}

// Runs a converter that is to make the file `makes`.
static bool run_converter(const char *command, const char *makes)
{
    trprintf("format_fax_file:  executing '%s'\n", command);
    const bool good = child_system(command) == 0;
    note_made(makes);
    return good;
}

// Converts by way of /tmp/NAME.ps and /tmp/NAME.pdf, the names that rasterps2 and distill agree on, and
// removes the fax. False with trace lines; the fax is then as it was.
static bool fax_to_pdf(const char *path, const char *pdf)
{
    trprintf("format_fax_file:  converting '%s' to pdf\n", path);
    char name[MAXPATHLEN], ps_path[MAXPATHLEN + 16], pdf_path[MAXPATHLEN + 16];
    command_t command;
    if (strlen(path) >= MAXPATHLEN - 1 || strlen(pdf) >= MAXPATHLEN)
        return false;
    snprintf(name, sizeof name, "/%s", last_component(path));
    snprintf(ps_path, sizeof ps_path, "/tmp%s.ps", name);
    snprintf(pdf_path, sizeof pdf_path, "/tmp%s.pdf", name);
    if (!clear_way(ps_path) || !clear_way(pdf_path))
        return false;

    // From here on both files are ours to remove, whether or not the converters get as far as making them.
    scratch_file ps_scratch(ps_path), pdf_scratch(pdf_path);
    snprintf(command, sizeof command, "rasterps2 -f /tmp%s.ps %s", name, path);
    if (!run_converter(command, ps_path))
        return false;
    snprintf(command, sizeof command, "echo 1 | distill /tmp%s.ps 2>/dev/null\n", name);
    if (!run_converter(command, pdf_path))
        return false;

    // Kept: the name unlinked here ends in a newline, so the PostScript file survives until the next fax of
    // that name; administrators look at it when a PDF is not what they expect.
    char ps_line[sizeof ps_path + 1];
    snprintf(ps_line, sizeof ps_line, "/tmp%s.ps\n", name);
    trprintf("format_fax_file:  unlinking '%s'\n", ps_line);
    unlink(ps_line);

    trprintf("format_fax_file:  moving '%s' to '%s'\n", pdf_path, pdf);
    if (!move_new(pdf_path, pdf))
        return false;
    ps_scratch.keep();
    pdf_scratch.keep();
    trprintf("unlink %s\n", path);
    unlink(path);
    return true;
}

// As delivery_file_format asks

// Kept: MH, whichever of the four codings was asked for; readers of delivered files count on it.
static bool to_mh(const char *path, const conversion_t &by, void (*keepalive)())
{
    if (!by.from_copy)  // Kept: only deliveries trace it.
        trprintf("format_fax_file:  converting %s to MH compression\n", path);
    if (t4dec_change_format(path, 0, -1, keepalive))
        return true;
    log_and_trace({ELOG_WARNING, by.destinations}, "%s: Can't change compression: [%s]\n", by.function, path);
    return false;
}

// The copy gets the TIFF's name at once; a conversion in place leaves it there.
static bool copy_to_tiff(const char *path, const char *tiff)
{
    if (!copy_new(path, tiff))
        return false;
    scratch_file scratch(tiff);
    if (fax_to_tiff(tiff) < 0)
        return false;
    scratch.keep();
    return true;
}

static bool turn_into_tiff(const char *path, const char *tiff)
{
    trprintf("format_fax_file:  converting %s to tiff class f\n", path);
    return fax_to_tiff(path) >= 0 && move_new(path, tiff);
}

// `good`: the fax has been converted to `converted`, a name shorter than MAXPATHLEN.
static bool end_conversion(bool good, char *path, const std::string &converted, const char *function,
                           int destinations)
{
    if (good)
        snprintf(path, MAXPATHLEN, "%s", converted.c_str());
    else
        log_and_trace({ELOG_WARNING, destinations}, "%s: Can't filter fax file: [%s]\n", function, path);
    return good;
}

static bool to_tiff(char *path, const conversion_t &by, void (*keepalive)())
{
    const std::string tiff = by.from_copy ? copy_name(path) : converted_name(path, ".tif");
    if (by.from_copy && keepalive)
        keepalive();
    const bool good = tiff.size() < MAXPATHLEN &&
                      (by.from_copy ? copy_to_tiff(path, tiff.c_str()) : turn_into_tiff(path, tiff.c_str()));
    return end_conversion(good, path, tiff, by.function, by.destinations);
}

// Kept: failures are reported in the name of format_fax_file, whoever asked; site scripts search the
// exception log for that line.
static bool to_pdf(char *path)
{
    const std::string pdf = converted_name(path, ".pdf");
    return end_conversion(fax_to_pdf(path, pdf.c_str()), path, pdf, "format_fax_file", elog_file_and_stderr);
}

bool convert_fax(char *path, int format, const conversion_t &by, void (*keepalive)()) noexcept
try {
    switch (format) {
    case IV_FILE_FORMAT_G3:
    case IV_FILE_FORMAT_G3MH:
    case IV_FILE_FORMAT_G3MR:
    case IV_FILE_FORMAT_G4:
        return to_mh(path, by, keepalive);
    case IV_FILE_FORMAT_TIFF_F:
        return to_tiff(path, by, keepalive);
    case IV_FILE_FORMAT_PDF:
        return to_pdf(path);
    default:  // no setting, or one for other programs: delivered as received
        return true;
    }
} catch (const std::bad_alloc &) {
    return end_conversion(false, path, {}, by.function, by.destinations);
}

}  // namespace faxtray
