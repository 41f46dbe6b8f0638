// The files of a fax are named after a hash of its name, size and time: whether the right ones are there
// shows by their names, and no name from outside gets into the directory. index.html is replaced once all
// files that it links to are there, and files that it no longer links to are removed last, so it is right at
// any moment.
#include "client/html_list.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <regex>
#include <set>

#include "client/fetched_fax.h"
#include "client/html_page.h"
#include "client/known_faxes.h"
#include "disk/whole_file.h"
#include "document/pdf_writer.h"
#include "document/png_writer.h"
#include "util/command_output.h"
#include "util/io.h"

namespace faxtray {

namespace fs = std::filesystem;

static constexpr int thumbnail_width = 320;  // pixels: twice what the page shows, for fine screens
static const std::string index_name = "index.html";

namespace {

struct html_directory_t {
    std::string path;
    unique_fd lock;
    std::set<std::string> present, wanted;  // names of files
};

}  // namespace

// Returns false, so that a caller can return its result.
static bool complain(const std::string &path, const char *why)
{
    fprintf(stderr, "faxtray: %s: %s\n", printable(path).c_str(), why);
    return false;
}

// The directory.

// Files of faxes, marks of those that cannot be shown, and what a kill has left of any.
static bool is_ours(const std::string &name)
{
    static const std::regex ours("fax-[0-9a-f]{16}\\.(pdf|png|bad)|\\.faxtray-.{6}");
    return std::regex_match(name, ours);
}

static bool is_our_index(const std::string &path)
{
    const unique_fd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    std::string start(html_mark.size(), '\0');
    return fd && read_full(fd.get(), start.data(), start.size()) == static_cast<ssize_t>(start.size()) &&
           start == html_mark;
}

// Opens the directory, for nobody but us, and locks it. False with the reason printed.
static bool open_directory(html_directory_t *directory)
{
    const std::string &path = directory->path;
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        return complain(path, strerror(errno));
    directory->lock.reset(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory->lock)
        return complain(path, strerror(errno));
    if (flock(directory->lock.get(), LOCK_EX | LOCK_NB) != 0)
        return complain(path, errno == EWOULDBLOCK ? "another faxtray is at work there" : strerror(errno));
    std::error_code error;
    bool all_ours = true;
    for (fs::directory_iterator at(path, error), end; !error && at != end; at.increment(error)) {
        const std::string name = at->path().filename();
        all_ours = all_ours && is_ours(name);
        directory->present.insert(name);
    }
    if (error)
        return complain(path, error.message().c_str());
    if (directory->present.contains(index_name) ? !is_our_index(path + "/" + index_name) : !all_ours)
        return complain(path, "it holds other files: name a new directory, or an empty one");
    return fchmod(directory->lock.get(), 0700) == 0 || complain(path, strerror(errno));
}

// A crash may have left temporary files; no other faxtray is at work here.
static void remove_unwanted(const html_directory_t &directory)
{
    for (const std::string &name : directory.present)
        if (is_ours(name) && !directory.wanted.contains(name))
            unlinkat(directory.lock.get(), name.c_str(), 0);
}

// Faxes.

// Writes a whole file into the directory, by `write`, which prints why it fails.
template <class Write> bool add_file(const html_directory_t &directory, const std::string &name, Write write)
{
    whole_file file;
    return file.begin(directory.path + "/" + name, true) && write(file) && file.keep();
}

// Makes the files of a fetched fax. False with the reason printed.
static bool add_documents(const html_directory_t &directory, const std::string &name, fax_pages_t *pages,
                          const grey_image_t &thumbnail)
{
    return add_file(directory, name + ".pdf",
                    [&](whole_file &file) { return write_pdf(pages, {}, file.fd()); }) &&
           add_file(directory, name + ".png",
                    [&](whole_file &file) { return write_png(thumbnail, file.fd()); });
}

static exit_status make_thumbnail(fax_pages_t *pages, grey_image_t *thumbnail)
{
    page_range_t all;
    page_image_t page;
    exit_status status = find_whole_pages(pages, &all);
    const page_place_t first = {pages->next, pages->left};
    if (status == EXIT_DONE)
        status = decode_next_page(pages, &page);
    if (status != EXIT_DONE)
        return status;
    *thumbnail = scaled_preview(page, pages->vertical_dpi, thumbnail_width);
    return return_to_page(pages, first) ? EXIT_DONE : EXIT_LOCAL;
}

// Fetches a fax and makes its files. EXIT_REFUSED if that fax alone is the trouble; `bad`: it always will be.
static exit_status add_fax(session &s, const html_directory_t &directory, const fax_entry &fax,
                           const std::string &name, bool *bad)
{
    fax_pages_t pages;
    grey_image_t thumbnail;
    exit_status status = fetch_pages(s, fax, &pages);
    const bool fetched = s.client.failure().kind == client_failure::NONE;
    if (status == EXIT_DONE)
        status = make_thumbnail(&pages, &thumbnail);
    if (status == EXIT_DONE)
        return add_documents(directory, name, &pages, thumbnail) ? EXIT_DONE : EXIT_LOCAL;
    *bad = status == EXIT_REFUSED && fetched;
    if (*bad && !add_file(directory, name + ".bad", [](whole_file &) { return true; }))
        return EXIT_LOCAL;
    return status;
}

// Makes sure that the files of a fax are there, and appends its row to the page.
static exit_status bring(session &s, html_directory_t *directory, const fax_entry &fax, std::string *page)
{
    const std::string name = lasting_name(fax);
    const auto &present = directory->present;
    bool bad = !fax.is_fax || present.contains(name + ".bad");
    exit_status status = EXIT_DONE;
    if (!bad && !(present.contains(name + ".pdf") && present.contains(name + ".png")))
        status = add_fax(s, *directory, fax, name, &bad);
    if (status == EXIT_DONE && !bad)
        directory->wanted.insert({name + ".pdf", name + ".png"});
    if (bad)
        directory->wanted.insert(name + ".bad");
    *page += html_row(fax, status == EXIT_DONE && !bad ? name : "",
                      bad ? "Cannot be shown: it is damaged, or no fax." : "Could not be fetched this time.");
    return bad ? EXIT_DONE : status;
}

static std::string title_of(const options &chosen)
{
    return (chosen.inbox.empty() ? "Faxes of " + chosen.user : "Faxes in " + chosen.inbox) + " at " +
           chosen.host;
}

exit_status write_html_list(session &s, const std::deque<fax_entry> &faxes)
{
    umask(077);
    html_directory_t directory;
    directory.path = s.chosen.directory;
    if (!open_directory(&directory))
        return EXIT_LOCAL;
    std::string page = html_head(title_of(s.chosen), faxes.size(), time(nullptr));
    exit_status worst = EXIT_DONE;
    for (auto fax = faxes.rbegin(); fax != faxes.rend(); ++fax) {
        const exit_status status = bring(s, &directory, *fax, &page);
        if (status != EXIT_DONE && status != EXIT_REFUSED)
            return status;
        worst = std::max(worst, status);
    }
    page += html_end();
    if (!add_file(directory, index_name,
                  [&](whole_file &file) { return file.write(page.data(), page.size()); }))
        return EXIT_LOCAL;
    remove_unwanted(directory);
    return worst;
}

}  // namespace faxtray
