// A fax that is wanted in another form is first fetched whole, into a file without a name. What is made of it
// gets its name last, and only after that is the fax removed from the server: a failure or a kill in between
// loses nothing.
#include "client/get_command.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>

#include "client/fax_forms.h"
#include "client/fetched_fax.h"
#include "client/output.h"
#include "client/remove_commands.h"
#include "disk/staged_files.h"
#include "disk/whole_file.h"
#include "util/command_output.h"

namespace faxtray {

namespace {

// One run of the command.
struct getting_t {
    session &s;
    const fax_form_t *form;          // null for the fax as it is
    std::set<std::string> written;   // files: none of them is replaced by another fax of the same run
    std::vector<std::string> files;  // of the fax that was got last
};

}  // namespace

static bool is_directory(const std::string &path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// Where the file goes that would be called `name`. What ends in "/" is a directory, even one that is gone.
static std::string target_for(const options &chosen, const std::string &name)
{
    if (chosen.output.empty())
        return name;
    if (chosen.output.ends_with('/'))
        return chosen.output + name;
    return is_directory(chosen.output) ? chosen.output + "/" + name : chosen.output;
}

// Takes down a file that is whole.
static void note(getting_t *getting, const std::string &target)
{
    getting->written.insert(target);
    getting->files.push_back(target);
}

static bool begin_file(const getting_t &getting, const std::string &target, whole_file *file)
{
    return file->begin(target, getting.s.chosen.force && !getting.written.contains(target));
}

static exit_status get_as_it_is(getting_t *getting, const fax_entry &fax)
{
    session &s = getting->s;
    const std::string target = target_for(s.chosen, file_name_for(fax));
    whole_file file;
    if (!begin_file(*getting, target, &file))
        return EXIT_LOCAL;
    const exit_status status =
        fetch_fax(s, fax, [&](const char *bytes, size_t n) { return file.write(bytes, n); });
    if (status != EXIT_DONE)
        return status;
    if (!file.keep())
        return EXIT_LOCAL;
    note(getting, target);
    return EXIT_DONE;
}

// Writes the next page as an image.
static exit_status write_image(const fax_form_t &form, fax_pages_t *pages, int fd)
{
    page_image_t image;
    if (exit_status status = decode_next_page(pages, &image); status != EXIT_DONE)
        return status;
    return form.write_image(image, pages->vertical_dpi, fd) ? EXIT_DONE : EXIT_LOCAL;
}

// All pages, or the one that is asked for, in one file.
static exit_status get_one_file(getting_t *getting, const fax_entry &fax, fax_pages_t *pages)
{
    session &s = getting->s;
    const fax_form_t &form = *getting->form;
    const std::string name = s.chosen.page ? page_name(stem_of(fax), s.chosen.page, fax.pages, form)
                                           : stem_of(fax) + form.extension;
    const std::string target = target_for(s.chosen, name);
    whole_file file;
    if (!begin_file(*getting, target, &file))
        return EXIT_LOCAL;
    page_range_t range = {std::max(s.chosen.page, 1L), s.chosen.page};
    exit_status status = fetch_pages(s, fax, pages);
    if (status == EXIT_DONE)
        status = find_whole_pages(pages, &range);
    if (status == EXIT_DONE && !form.write_document)
        status = write_image(form, pages, file.fd());
    else if (status == EXIT_DONE && !form.write_document(pages, range, file.fd()))
        status = EXIT_LOCAL;
    if (status == EXIT_DONE && !file.keep())
        status = EXIT_LOCAL;
    if (status == EXIT_DONE)
        note(getting, target);
    return status;
}

// Where the files of the pages go, and what their names begin with. -o is either a directory or, less the
// extension, that beginning.
static std::string prefix_for(const options &chosen, const fax_entry &fax, const fax_form_t &form)
{
    std::string prefix = target_for(chosen, stem_of(fax));
    if (prefix == chosen.output && prefix.ends_with(form.extension))
        prefix.resize(prefix.size() - strlen(form.extension));
    return prefix;
}

// Each page in a file of its own; all of them or none.
static exit_status get_files(getting_t *getting, const fax_entry &fax, fax_pages_t *pages)
{
    session &s = getting->s;
    const fax_form_t &form = *getting->form;
    page_range_t range;
    exit_status status = fetch_pages(s, fax, pages);
    if (status == EXIT_DONE)
        status = find_whole_pages(pages, &range);
    if (status != EXIT_DONE)
        return status;
    const std::string prefix = prefix_for(s.chosen, fax, form);
    const size_t name_at = prefix.rfind('/') + 1;  // 0 without any
    auto name_of = [&](long page) { return page_name(prefix.substr(name_at), page, range.last, form); };
    const std::string directory = prefix.substr(0, name_at);
    staged_files files;
    if (!files.begin(directory, s.chosen.force && !getting->written.contains(directory + name_of(1))))
        return EXIT_LOCAL;
    {
        progress_bar bar(printable(fax.name), range.last, progress_bar::PAGES);
        for (long page = 1; status == EXIT_DONE && page <= range.last; page++) {
            const unique_fd fd = files.add(name_of(page));
            status = fd && !files.interrupted() ? write_image(form, pages, fd.get()) : EXIT_LOCAL;
            bar.add(1);
        }
    }
    if (status == EXIT_DONE && !files.keep())
        status = EXIT_LOCAL;
    for (long page = 1; status == EXIT_DONE && page <= range.last; page++)
        note(getting, directory + name_of(page));
    return status;
}

// Removes a fax that has been fetched; `pages` is what was fetched of it, read to its last page, or null for
// all of it. A fax that holds more than the pages that its header counts stays.
static exit_status remove_fetched(session &s, const fax_entry &fax, const fax_pages_t *pages)
{
    if (pages && pages->left > 0) {
        complain(*pages, "not removed from the server: " + std::to_string(pages->left) +
                             " bytes follow its last page, which only --as fax fetches");
        return EXIT_REFUSED;
    }
    fax_entry now;
    return remove_fax(s, fax.id, &now);
}

// Fetches a fax into its files. `pages` is what was fetched of it, read to its last page, unless it was
// fetched as it is.
static exit_status get_whole(getting_t *getting, const fax_entry &fax, fax_pages_t *pages)
{
    getting->files.clear();
    if (!getting->form)
        return get_as_it_is(getting, fax);
    if (getting->form->write_document || getting->s.chosen.page)
        return get_one_file(getting, fax, pages);
    return get_files(getting, fax, pages);
}

exit_status get_fax(session &s, const fax_entry &fax, const fax_form_t *form, std::vector<std::string> *files)
{
    getting_t getting = {s, form, {}, {}};
    fax_pages_t pages;
    const exit_status status = get_whole(&getting, fax, &pages);
    *files = std::move(getting.files);
    return status;
}

static exit_status get_one(getting_t *getting, faxid_t id)
{
    session &s = getting->s;
    fax_entry fax;
    fax_pages_t pages;
    exit_status status = find_fax(s, id, &fax);
    if (status == EXIT_DONE)
        status = get_whole(getting, fax, &pages);
    if (status != EXIT_DONE)
        return status;
    for (const std::string &file : getting->files)
        if (file != "-")
            printf("%s\n", printable(file).c_str());
    if (s.chosen.remove)
        return remove_fetched(s, fax, getting->form ? &pages : nullptr);
    return EXIT_DONE;
}

// What the command line asks for that cannot be done, or null.
static const char *contradiction(const options &chosen, const fax_form_t *form)
{
    if (chosen.page && !form)
        return "--page needs a form of --as other than fax";
    if (chosen.page && chosen.remove)
        return "--rm does not go with --page: the other pages would be lost";
    if (chosen.remove && chosen.output == "-")
        return "--rm needs a file: what is written to standard output may never reach a disk";
    if (form && form->write_image && !chosen.page && chosen.output == "-")
        return "each page is a file of its own: choose one with --page, or a directory with -o";
    return nullptr;
}

exit_status get_command(session &s)
{
    getting_t getting = {s, find_form(s.chosen.form), {}, {}};
    std::vector<faxid_t> ids;
    const char *why_not = contradiction(s.chosen, getting.form);
    exit_status status = why_not ? EXIT_USAGE : choose_faxes(s, &ids);
    // Refused before the first fax is fetched: the second would replace it, or fail.
    if (!why_not && (s.chosen.all || ids.size() > 1) && !s.chosen.output.empty() &&
        !is_directory(s.chosen.output))
        why_not = "several faxes need a directory for -o";
    if (why_not) {
        fprintf(stderr, "faxtray: %s\n", why_not);
        return EXIT_USAGE;
    }
    if (status != EXIT_DONE)
        return status;
    return for_each_fax(ids, [&](faxid_t id) { return get_one(&getting, id); });
}

}  // namespace faxtray
