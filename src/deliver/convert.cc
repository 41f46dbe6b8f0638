// The site's converters as commands. What they leave half-way is removed.
#include "deliver/convert.h"

#include <sys/param.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "disk/files.h"
#include "disk/work_note.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "util/child_process.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/trace.h"

namespace faxtray {

namespace {

// A file that is removed when its owner goes, unless it was let go.
class scratch_file {
public:
    explicit scratch_file(const char *path) noexcept : path_(path) {}
    ~scratch_file()
    {
        if (path_)
            unlink(path_);
    }
    scratch_file(const scratch_file &) = delete;
    scratch_file &operator=(const scratch_file &) = delete;

    void release() noexcept { path_ = nullptr; }

private:
    const char *path_;
};

// Holds any command made of two paths.
using command_t = char[3 * MAXPATHLEN];

}  // namespace

// Names

const char *get_tmp_ext(const char *name)
{
    const char *dot = strrchr(last_component(name), '.');
    if (!dot)
        return nullptr;
    const char *p = dot + 1;
    while (p < dot + 5 && isdigit(static_cast<unsigned char>(*p)))
        p++;
    return p == dot + 5 && strcmp(p, "tmp") == 0 ? dot : nullptr;
}

std::string converted_name(const char *path, const char *ext) noexcept
{
    try {
        const char *tmp_ext = get_tmp_ext(path);
        std::string name(path, tmp_ext ? static_cast<size_t>(tmp_ext - path) : strlen(path));
        size_t dot = name.rfind('.');
        if (dot != std::string::npos && name.compare(dot, name.npos, ".fax") == 0)
            name.resize(dot);
        return name + ext;
    } catch (const std::bad_alloc &) {
        return {};
    }
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

// Runs the converter; true when it says that `tiff` holds the fax.
static bool run_tiffconv(const char *path, const char *tiff)
{
    char base[MAXPATHLEN], converter[MAXPATHLEN + 16];
    command_t command;
    snprintf(converter, sizeof converter, "%s/%s", converter_base(base), "utils/tiffconv");
    int n = snprintf(command, sizeof command, "%s -m %s %s", converter, path, tiff);
    errno = ENAMETOOLONG;
    int status = n < static_cast<int>(sizeof command) ? child_system(command) : -1;
    if (status == -1)
        log_and_trace({ELOG_ERROR, ELOG_FILE}, "fax_to_tiff: Can't execute '%s' tiff filter for [%s]: %s\n",
                      command, path, strerror(errno));
    else if (status != 0)
        log_and_trace({ELOG_ERROR, ELOG_FILE}, "fax_to_tiff: tiffconv filter '%s' exit code %d for %s\n",
                      command, status, path);
    return status == 0;
}

int fax_to_tiff(const char *path)
{
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
    fd.reset();
    scratch_file scratch(tiff);
    if (!run_tiffconv(path, tiff))
        return -1;
    note_made(tiff);
    if (!cv_move(tiff, path)) {
        fprintf(stderr, "fax_to_tiff: Can't rename fax file %s -> %s\n", tiff, path);
        return -1;
    }
    scratch.release();
    return 1;
}

// PDF

// Makes room for what a converter shall write: what stood there would be taken for its work. A name is
// predictable in a directory open to all, so neither is it written through.
static bool clear_way(const char *path)
{
    if (unlink(path) == 0 || errno == ENOENT) {
        note_will_make(path);
        return true;
    }
    trprintf("fax_to_pdf: unlink(\"%s\") failed: %s.\n", path, strerror(errno));
    return false;
}

static bool run_converter(const char *command, const char *makes)
{
    trprintf("format_fax_file:  executing '%s'\n", command);
    bool good = child_system(command) == 0;
    note_made(makes);
    return good;
}

int fax_to_pdf(const char *path, const char *pdf)
{
    trprintf("format_fax_file:  converting '%s' to pdf\n", path);
    char name[MAXPATHLEN], ps_path[MAXPATHLEN + 16], pdf_path[MAXPATHLEN + 16];
    command_t command;
    if (strlen(path) >= MAXPATHLEN - 1 || strlen(pdf) >= MAXPATHLEN)
        return 0;
    snprintf(name, sizeof name, "/%s", last_component(path));
    snprintf(ps_path, sizeof ps_path, "/tmp%s.ps", name);
    snprintf(pdf_path, sizeof pdf_path, "/tmp%s.pdf", name);
    if (!clear_way(ps_path) || !clear_way(pdf_path))
        return 0;

    scratch_file ps_scratch(ps_path), pdf_scratch(pdf_path);
    snprintf(command, sizeof command, "rasterps2 -f /tmp%s.ps %s", name, path);
    if (!run_converter(command, ps_path))
        return 0;
    snprintf(command, sizeof command, "echo 1 | distill /tmp%s.ps 2>/dev/null\n", name);
    if (!run_converter(command, pdf_path))
        return 0;

    // Kept: the PostScript file stays, as the name keeps its newline, until the next of that name.
    char ps_line[sizeof ps_path + 1];
    snprintf(ps_line, sizeof ps_line, "/tmp%s.ps\n", name);
    trprintf("format_fax_file:  unlinking '%s'\n", ps_line);
    unlink(ps_line);

    trprintf("format_fax_file:  moving '%s' to '%s'\n", pdf_path, pdf);
    if (!move_new(pdf_path, pdf))
        return 0;
    ps_scratch.release();
    pdf_scratch.release();
    trprintf("unlink %s\n", path);
    unlink(path);
    return 1;
}

}  // namespace faxtray
