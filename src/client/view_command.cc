// The terminal is left as it was found whatever happens: pictures are written while the signals that end a
// program are held back. A viewer may return at once and read the file later, so the file is left to it, and
// removed by a later run.
#include "client/view_command.h"

#include <fcntl.h>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "client/block_picture.h"
#include "client/fax_forms.h"
#include "client/fetched_fax.h"
#include "client/output.h"
#include "client/pixel_picture.h"
#include "disk/whole_file.h"
#include "util/command_output.h"
#include "util/ending_signals.h"
#include "util/io.h"
#include "util/paths.h"
#include "util/shell_word.h"
#include "util/text.h"

namespace faxtray {

namespace fs = std::filesystem;

static std::string environment(const char *name)
{
    const char *value = getenv(name);
    return value ? value : "";
}

// The terminal.

static bool terminal_shows_pictures()
{
    const std::string terminal = environment("TERM");
    return isatty(STDOUT_FILENO) == 1 && !terminal.empty() && terminal != "dumb";
}

namespace {

struct window_t {
    int columns, cell_width, cell_height;  // cells; pixels
};

}  // namespace

static window_t window()
{
    winsize size = {};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
    const int columns = size.ws_col ? size.ws_col : 80;
    // Many terminals do not say how large a cell is.
    if (!size.ws_row || size.ws_xpixel < size.ws_col || size.ws_ypixel < size.ws_row)
        return {columns, 10, 20};
    return {columns, size.ws_xpixel / columns, size.ws_ypixel / size.ws_row};
}

// As wide as the window, but not wider than the page itself. Of a long page the terminal keeps what has
// scrolled away.
static std::string picture_of(const page_image_t &page, int vertical_dpi)
{
    const window_t now = window();
    if (terminal_shows_pixels()) {
        const int width = std::min(now.columns * now.cell_width, page.width);
        return pixel_picture(scaled_preview(page, vertical_dpi, width), now.cell_width, now.cell_height);
    }
    const bool many =
        environment("TERM").find("256color") != std::string::npos || !environment("COLORTERM").empty();
    const bool utf8 = strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    return block_picture(scaled_preview(page, vertical_dpi, std::min(now.columns, page.width)), {many, utf8});
}

// A signal that comes meanwhile gets its turn after a piece, once the picture has been broken off: by the end
// of a control string, the colours' reset and a new line.
static exit_status write_to_terminal(const std::string &picture)
{
    static constexpr size_t piece = 4096;
    static constexpr char broken_off[] = "\x1b\\\x1b[0m\n";
    const ending_signals_held until_written;
    for (size_t at = 0; at < picture.size(); at += piece) {
        if (until_written.one_came()) {
            write_full(STDOUT_FILENO, broken_off, sizeof broken_off - 1);
            return EXIT_LOCAL;
        }
        if (!write_full(STDOUT_FILENO, picture.data() + at, std::min(piece, picture.size() - at))) {
            fprintf(stderr, "faxtray: can't write to the terminal: %s\n", strerror(errno));
            return EXIT_LOCAL;
        }
    }
    return EXIT_DONE;
}

static exit_status show_in_terminal(const fax_entry &fax, fax_pages_t *pages)
{
    page_image_t page;
    const long number = pages->next;
    if (exit_status status = decode_next_page(pages, &page); status != EXIT_DONE)
        return status;
    printf("%s, page %ld of %ld\n", named(fax).c_str(), number, pages->pages);
    fflush(stdout);
    return write_to_terminal(picture_of(page, pages->vertical_dpi));
}

// Viewers.

static constexpr char viewed_prefix[] = "faxtray-view-";

// Removes what viewers were given more than a day ago.
static void remove_viewed()
{
    std::error_code error;
    const time_t yesterday = time(nullptr) - 24 * 60 * 60;
    for (fs::directory_iterator at(temporary_directory(), error), end; !error && at != end;
         at.increment(error)) {
        struct stat status;
        std::error_code ignored;
        if (at->path().filename().string().starts_with(viewed_prefix) &&
            lstat(at->path().c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
            status.st_uid == geteuid() && status.st_mtime < yesterday)
            fs::remove_all(at->path(), ignored);
    }
}

// Has the viewer show the file. False, with the reason printed, if it fails.
static bool run_viewer(const std::string &path)
{
    const std::string chosen = environment("FAXTRAY_VIEWER"), viewer = chosen.empty() ? "xdg-open" : chosen;
    signal(SIGPIPE, SIG_DFL);  // the viewer would inherit that it is ignored
    const int status = system((viewer + " " + shell_word(path)).c_str());
    if (status == 0)
        return true;
    if (status < 0)
        fprintf(stderr, "faxtray: can't run %s: %s\n", printable(viewer).c_str(), strerror(errno));
    else if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
        fprintf(stderr, "faxtray: no viewer: set FAXTRAY_VIEWER, or install xdg-utils\n");
    else if (WIFEXITED(status))
        fprintf(stderr, "faxtray: %s ended with status %d\n", printable(viewer).c_str(), WEXITSTATUS(status));
    else
        fprintf(stderr, "faxtray: %s was ended by signal %d\n", printable(viewer).c_str(), WTERMSIG(status));
    return false;
}

// The file is in a directory of its own, so that viewers show the name of the fax.
static exit_status show_by_viewer(const fax_entry &fax, fax_pages_t *pages, const page_range_t &range)
{
    remove_viewed();
    umask(077);
    std::string directory = temporary_directory() + "/" + viewed_prefix + "XXXXXX";
    if (!mkdtemp(directory.data())) {
        fprintf(stderr, "faxtray: can't create %s: %s\n", printable(directory).c_str(), strerror(errno));
        return EXIT_LOCAL;
    }
    const std::string path = directory + "/" + stem_of(fax) + ".pdf";
    bool shown = false;
    {
        whole_file file;
        shown = file.begin(path, false) && find_form("pdf")->write_document(pages, range, file.fd()) &&
                file.keep();
    }
    if (shown && run_viewer(path))
        return EXIT_DONE;
    std::error_code ignored;
    fs::remove_all(directory, ignored);
    return EXIT_LOCAL;
}

// Shows the pages that the command line asks for.
static exit_status show(const options &chosen, const fax_entry &fax, fax_pages_t *pages)
{
    const bool in_terminal = environment("FAXTRAY_VIEWER").empty() && terminal_shows_pictures();
    const long first = std::max(chosen.page, 1L);
    page_range_t range = {first, in_terminal ? first : chosen.page};
    const exit_status status = find_whole_pages(pages, &range);
    if (status != EXIT_DONE)
        return status;
    return in_terminal ? show_in_terminal(fax, pages) : show_by_viewer(fax, pages, range);
}

exit_status view_command(session &s)
{
    faxid_t id = 0;
    fax_entry fax;
    fax_pages_t pages;
    exit_status status = choose_fax(s, &id);
    if (status == EXIT_DONE)
        status = find_fax(s, id, &fax);
    if (status == EXIT_DONE)
        status = fetch_pages(s, fax, &pages);
    return status == EXIT_DONE ? show(s.chosen, fax, &pages) : status;
}

exit_status view_file_command(const options &chosen)
{
    fax_entry fax;
    fax_pages_t pages;
    unique_fd fd(open(chosen.file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) {
        fprintf(stderr, "faxtray: can't read %s: %s\n", printable(chosen.file).c_str(), strerror(errno));
        return EXIT_LOCAL;
    }
    if (!open_fax_pages(std::move(fd), chosen.file, &pages))
        return EXIT_REFUSED;
    fax.name = last_component(chosen.file.c_str());
    const char *sender = get_fax_header_value(pages.header.get(), "SENDER_FAX#");
    fax.sender = sender ? sender : "";
    return show(chosen, fax, &pages);
}

}  // namespace faxtray
