// What a converter leaves half-way is removed: files on the way are scratch files, named in the delivery's
// note (work_note.h) as well, so that they are removed even after a crash.
#include "deliver/convert.h"

#include <fcntl.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "codec/change_format.h"
#include "config/attributes.h"
#include "disk/file_names.h"
#include "disk/files.h"
#include "disk/scratch_file.h"
#include "disk/work_note.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "util/child_process.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/shell_word.h"
#include "util/site_programs.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

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

std::string converted_fax(const char *path, int format, bool from_copy)
{
    switch (format) {
    case IV_FILE_FORMAT_TIFF_F:
        return from_copy ? copy_name(path) : converted_name(path, ".tif");
    case IV_FILE_FORMAT_PDF:
        return converted_name(path, ".pdf");
    default:
        return "";
    }
}

// Replaces the name `path`, which another process has taken, by the next to try: "x1_.tif" after "x0_.tif",
// up to "x7_.tif"; after a short name the next that is free. False when there is none.
static bool next_name(std::string &path)
{
    const size_t dot = path.rfind('.'), digit = dot - 2;
    if (dot == path.npos || dot < 2)
        return false;
    if (path[dot - 1] == '_' && isdigit(static_cast<unsigned char>(path[digit])))
        return path[digit]++ < '7';
    char name[MAXPATHLEN];
    snprintf(name, sizeof name, "%s", path.c_str());
    if (!build_unique_DOS_name(name, path.c_str() + dot))
        return false;
    path = name;
    return true;
}

// Copies or moves a file to a name that was free when it was chosen, or to the next that is. `to` gets the
// name.
static bool make_at(int (*make)(const char *from, const char *to), const char *from, std::string &to)
{
    while (to.size() < MAXPATHLEN) {
        if (make(from, to.c_str()))
            return true;
        if (errno != EEXIST || !next_name(to))
            break;
    }
    return false;
}

// Converters

// Runs a command whose files nobody else may read yet. The wait status, or -1 with errno.
static int run_converter(const std::string &command)
{
    const mode_t mask = umask(077);
    const int status = child_system(command.c_str());
    umask(mask);
    return status;
}

// Whether a converter has left at `path` a file that is not empty, and belongs to `owner`. It may have
// replaced the file that we made for it, and where others may write they could have, too: so no link is
// followed. With a `fax` the file gets that one's permissions.
static bool accept_output(const char *path, uid_t owner, const char *fax)
{
    struct stat st, like;
    const unique_fd fd(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd || fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != owner || st.st_size == 0) {
        trprintf("convert_fax: the converter left no file of ours at \"%s\".\n", path);
        return false;
    }
    note_made(path);
    if (fax && stat(fax, &like) == 0)
        give_permissions(fd.get(), path, like.st_mode);
    return true;
}

// TIFF

// The directory below which the TIFF converter is.
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
    char base[MAXPATHLEN];
    const std::string command = shell_word(std::string(converter_base(base)) + "/" + tiff_converter) +
                                " -m " + shell_word(path) + " " + shell_word(tiff);
    const int status = run_converter(command);
    if (status == -1)
        log_and_trace({ELOG_ERROR, ELOG_FILE}, "fax_to_tiff: Can't execute '%s' tiff filter for [%s]: %s\n",
                      command.c_str(), path, strerror(errno));
    else if (status != 0)
        log_and_trace({ELOG_ERROR, ELOG_FILE}, "fax_to_tiff: tiffconv filter '%s' exit code %d for %s\n",
                      command.c_str(), status, path);
    return status == 0;
}

int fax_to_tiff(const char *path) noexcept
try {
    // The converter writes to a file of the work directory, which then replaces the fax in one step: no
    // moment shows half a TIFF under the fax's name.
    char tiff[MAXPATHLEN];
    unique_fd fd(unique_file("FDF.", tiff));
    if (!fd) {
        const char *reason = strerror(errno);
        if (!tiff[0])
            fprintf(stderr, "fax_to_tiff: Can't get temp file: %s\n", reason);
        else
            fprintf(stderr, "fax_to_tiff: Can't open temp file: %s\n", reason);
        return -1;
    }
    struct stat made = {};  // its owner is not us where a file server says so
    fstat(fd.get(), &made);
    fd.reset();
    scratch_file scratch(tiff);
    if (!run_tiffconv(path, scratch.path()) || !accept_output(scratch.path(), made.st_uid, path))
        return -1;
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

// Makes an empty file for a converter to write to, by which nobody else can put one there. The PostScript of
// the last fax of that name is removed first. Anything else of that name stays, and fails the delivery: /tmp
// is open to all, and a converter would write through a link.
static bool make_way(const std::string &path, scratch_file &file)
{
    struct stat st;
    if (lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid() && st.st_nlink == 1)
        unlink(path.c_str());
    if (make_new(path.c_str(), 0600)) {
        file = scratch_file(path.c_str());
        return true;
    }
    if (errno == EEXIST && lstat(path.c_str(), &st) == 0)
        log_and_trace({ELOG_WARNING, elog_file_and_stderr},
                      "format_fax_file: [%s] of uid %ld is in the way: remove it\n", path.c_str(),
                      static_cast<long>(st.st_uid));
    else
        trprintf("fax_to_pdf: open(\"%s\") failed: %s.\n", path.c_str(), strerror(errno));
    return false;
}

static bool run_pdf_converter(const std::string &command)
{
    trprintf("format_fax_file:  executing '%s'\n", command.c_str());
    return run_converter(command) == 0;
}

// Converts by way of /tmp/NAME.ps and /tmp/NAME.pdf, the names that the two converters agree on, and
// removes the fax. False with trace lines; the fax is then as it was.
static bool fax_to_pdf(const char *path, std::string &pdf)
{
    trprintf("format_fax_file:  converting '%s' to pdf\n", path);
    const std::string stem = std::string("/tmp/") + last_component(path), ps_path = stem + ".ps",
                      pdf_path = stem + ".pdf";
    scratch_file ps_scratch, pdf_scratch;
    if (pdf.size() >= MAXPATHLEN || !make_way(ps_path, ps_scratch) || !make_way(pdf_path, pdf_scratch))
        return false;
    if (!run_pdf_converter(std::string(postscript_converter) + " -f " + shell_word(ps_path) + " " +
                           shell_word(path)) ||
        !accept_output(ps_path.c_str(), geteuid(), nullptr))
        return false;
    if (!run_pdf_converter(std::string("echo 1 | ") + pdf_converter + " " + shell_word(ps_path) +
                           " 2>/dev/null\n") ||
        !accept_output(pdf_path.c_str(), geteuid(), path))
        return false;

    // Kept: the name unlinked here ends in a newline, so the PostScript file survives until the next fax of
    // that name; administrators look at it when a PDF is not what they expect.
    const std::string ps_line = ps_path + "\n";
    trprintf("format_fax_file:  unlinking '%s'\n", ps_line.c_str());
    unlink(ps_line.c_str());

    trprintf("format_fax_file:  moving '%s' to '%s'\n", pdf_path.c_str(), pdf.c_str());
    if (!make_at(move_new, pdf_path.c_str(), pdf))
        return false;
    ps_scratch.keep();
    pdf_scratch.keep();
    trprintf("unlink %s\n", path);
    note_remove(path);
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
static bool copy_to_tiff(const char *path, std::string &tiff)
{
    if (!make_at(copy_new, path, tiff))
        return false;
    scratch_file scratch(tiff.c_str());
    if (fax_to_tiff(tiff.c_str()) < 0)
        return false;
    scratch.keep();
    return true;
}

static bool turn_into_tiff(const char *path, std::string &tiff)
{
    trprintf("format_fax_file:  converting %s to tiff class f\n", path);
    return fax_to_tiff(path) >= 0 && make_at(move_new, path, tiff);
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
    std::string tiff = converted_fax(path, IV_FILE_FORMAT_TIFF_F, by.from_copy);
    if (by.from_copy && keepalive)
        keepalive();
    const bool good =
        tiff.size() < MAXPATHLEN && (by.from_copy ? copy_to_tiff(path, tiff) : turn_into_tiff(path, tiff));
    return end_conversion(good, path, tiff, by.function, by.destinations);
}

// Kept: failures are reported in the name of format_fax_file, whoever asked; site scripts search the
// exception log for that line.
static bool to_pdf(char *path, const conversion_t &by)
{
    std::string pdf = converted_fax(path, IV_FILE_FORMAT_PDF, by.from_copy);
    const bool good = fax_to_pdf(path, pdf);
    return end_conversion(good, path, pdf, "format_fax_file", elog_file_and_stderr);
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
        return to_pdf(path, by);
    default:  // no setting, or one for other programs: delivered as received
        return true;
    }
} catch (const std::bad_alloc &) {
    return end_conversion(false, path, {}, by.function, by.destinations);
}

}  // namespace faxtray
