// A fax is fetched into a file without a name, a chunk at a time, and opened there. Every chunk and every
// page is a job of its own for the worker, so that a long fax holds others up for no longer than a page
// takes.
#include "web/fax_views.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>

#include "client/fax_forms.h"
#include "client/output.h"
#include "codec/t4_decoder.h"
#include "disk/unnamed_file.h"
#include "document/page_image.h"
#include "document/png_writer.h"
#include "util/io.h"

namespace faxtray {

static constexpr int thumbnail_width = 160;         // pixels
static constexpr long most_picture_rows = 65'500;   // browsers show no longer pictures; a fax of 8 m
static constexpr u_int most_decoded_fax = 1 << 26;  // bytes; what is larger can be had as it is
static constexpr size_t least_kept_file = 1 << 18;  // bytes: fewer are fetched again in one call

std::string tag_of(const fax_entry &fax)
{
    char tag[64];
    snprintf(tag, sizeof tag, "%x-%llx-%016zx", fax.size, static_cast<unsigned long long>(fax.mtime),
             std::hash<std::string>()(fax.name));
    return tag;
}

problem find_shown_fax(server_link &link, const fax_ref_t &ref, fax_entry *fax)
{
    const problem failed =
        link.call([&](inbox_client &client) { return client.find(ref.inbox, ref.id, fax); });
    if (failed)
        return failed;
    return tag_of(*fax) == ref.tag ? problem() : changed_problem();
}

// What is made of a fax, and from what.

static std::string cache_key(const fax_view_t &view, const std::string &what)
{
    const fax_entry &fax = view.fax;
    return (view.ref.inbox ? "i" + *view.ref.inbox : "o") + '\0' + fax.name + '\0' + std::to_string(fax.id) +
           ' ' + std::to_string(fax.size) + ' ' + std::to_string(fax.mtime) + ' ' + what;
}

// Has the server accept the request, then looks in the cache, and lets `make` make what is not there.
static problem view_by(fax_view_t *view, const std::string &what, cached_ptr *found,
                       const std::function<problem(cached_t *)> &make)
{
    if (const problem refused = find_shown_fax(view->link, view->ref, &view->fax))
        return refused;
    const std::string &user = view->link.who().user;
    const std::string key = cache_key(*view, what);
    *found = view->cache.find(user, key);
    if (*found)
        return {};
    const auto made = std::make_shared<cached_t>();
    if (const problem failed = make(made.get()))
        return failed;
    *found = made;
    view->cache.add(user, key, made);
    return {};
}

static bool complain_of_room()
{
    fprintf(stderr, "faxtray-web: no room for a fax in $TMPDIR, or else /tmp: %s\n", strerror(errno));
    return false;
}

// Fetches the fax, a chunk at a time. The file may change on the server meanwhile: then it ends elsewhere
// than the listing says.
static problem fetch(const fax_view_t &view, cached_t *fetched)
{
    const fax_entry &fax = view.fax;
    if (fax.size == UINT32_MAX)  // that many bytes, or more
        return web_problem_t{422, "refused",
                             "The fax is too large to be fetched. Ask the administrator for it."};
    fetched->file = make_unnamed_file();
    bool room = fetched->file || complain_of_room();
    size_t &got = fetched->file_size;
    for (size_t chunk = 1; room && got < fax.size; got += chunk) {
        const problem failed = view.link.call([&](inbox_client &client) {
            return client.get_fax(view.ref.inbox, fax.id, MAX_READ_SIZE, static_cast<u_int>(got),
                                  [&](const char *bytes, size_t n) {
                                      chunk = n;
                                      room = write_full(fetched->file.get(), bytes, n) || complain_of_room();
                                      return true;
                                  });
        });
        if (failed)
            return failed;
        if (chunk == 0 || got + chunk > fax.size)
            return changed_problem();
    }
    return room ? problem() : failed_problem();
}

// The fax itself, fetched now or shortly before.
static problem fetched_fax(const fax_view_t &view, cached_ptr *fax)
{
    const std::string &user = view.link.who().user;
    const std::string key = cache_key(view, "fax");
    *fax = view.cache.find(user, key);
    if (*fax)
        return {};
    const auto fetched = std::make_shared<cached_t>();
    if (const problem failed = fetch(view, fetched.get()))
        return failed;
    *fax = fetched;
    if (fetched->file_size >= least_kept_file)
        view.cache.add(user, key, fetched);
    return {};
}

// Opens the fetched fax from its beginning, with a position of its own: the file may be in use elsewhere.
static bool open_pages(const fax_view_t &view, const cached_t &fetched, fax_pages_t *pages)
{
    const std::string path = "/proc/self/fd/" + std::to_string(fetched.file.get());
    unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd)
        return complain_of_room();
    if (!open_fax_pages(std::move(fd), "fax " + std::to_string(view.fax.id), pages))
        return false;
    pages->received = view.fax.mtime;
    return true;
}

static problem unsound_problem()
{
    return web_problem_t{422, "refused", "It is damaged, or no fax."};
}

// Fetches the fax and opens it.
static problem open_view(const fax_view_t &view, cached_ptr *fetched, fax_pages_t *pages)
{
    if (!view.fax.is_fax)
        return unsound_problem();
    if (view.fax.size > most_decoded_fax)
        return web_problem_t{422, "refused", "The fax is too large to be shown. Download it as it is."};
    if (const problem failed = fetched_fax(view, fetched))
        return failed;
    bool sound = false;
    const problem failed = view.link.run([&] {
        sound = open_pages(view, **fetched, pages);
        return true;
    });
    return failed || sound ? failed : unsound_problem();
}

// What `write` writes to a descriptor.
static bool collect(const std::function<bool(int)> &write, std::string *bytes)
{
    const unique_fd fd(memfd_create("picture", MFD_CLOEXEC));
    if (!fd || !write(fd.get()))
        return false;
    const off_t size = lseek(fd.get(), 0, SEEK_END);
    bytes->resize(static_cast<size_t>(size));
    return pread(fd.get(), bytes->data(), bytes->size(), 0) == size;
}

// Pictures.

// Decodes a page and lets `write` write its picture.
static problem draw(const fax_view_t &view, long number, cached_t *png,
                    const std::function<bool(const page_image_t &, int dpi, int fd)> &write)
{
    cached_ptr fetched;
    fax_pages_t pages;
    if (const problem failed = open_view(view, &fetched, &pages))
        return failed;
    problem refused;
    const problem failed = view.link.run([&] {
        page_range_t only = {number, number};
        std::vector<unsigned char> data;
        page_image_t page;
        if (!find_pages(&pages, &only) || !read_fax_page(&pages, &data) ||
            !decode_page(pages, std::move(data), &page)) {
            refused = unsound_problem();
            return true;
        }
        if (page.height * horizontal_dpi / pages.vertical_dpi > most_picture_rows) {
            refused = {422, "refused", "The page is too long to be shown. Download the fax."};
            return true;
        }
        return collect([&](int fd) { return write(page, pages.vertical_dpi, fd); }, &png->bytes);
    });
    return failed ? failed : refused;
}

problem view_page(fax_view_t *view, long page, cached_ptr *png)
{
    return view_by(view, "page " + std::to_string(page), png, [&](cached_t *made) {
        return draw(*view, page, made, [](const page_image_t &image, int dpi, int fd) {
            return write_png(with_square_pixels(image, dpi), horizontal_dpi, fd);
        });
    });
}

problem view_thumbnail(fax_view_t *view, cached_ptr *png)
{
    return view_by(view, "thumbnail", png, [&](cached_t *made) {
        return draw(*view, 1, made, [](const page_image_t &image, int dpi, int fd) {
            return write_png(scaled_preview(image, dpi, thumbnail_width), fd);
        });
    });
}

// Details.

static void count_line(void *lines, const line_changes_t &, bool)
{
    ++*static_cast<long *>(lines);
}

// Measures the next page. A page that cannot be decoded has no height, and what follows may still be sound.
static nlohmann::json measured(const fax_pages_t &pages, std::vector<unsigned char> *data)
{
    long lines = 0;
    const bool decoded = decode_fax_page(pages, data, count_line, &lines);
    const t4_page_counts_t counts = t4dec_counts();
    return {{"width", changes_width},
            {"height", decoded ? square_height(std::min(lines, most_rows), pages.vertical_dpi) : 0},
            {"damaged", decoded ? counts.repeated + counts.ended_short : 0}};
}

// Measures all pages; `whole` becomes false if the file ends before the last of them does.
static problem measure_pages(const fax_view_t &view, nlohmann::json *details)
{
    cached_ptr fetched;
    fax_pages_t pages;
    const problem failed = open_view(view, &fetched, &pages);
    (*details)["whole"] = !failed;
    if (failed)
        return failed->status == 422 ? problem() : failed;
    for (const fax_header_t *node = pages.header.get(); node; node = node->next)
        (*details)["header"].push_back({node->name, node->value});
    bool whole = true;
    while (whole && pages.next <= std::min(pages.pages, most_document_pages)) {
        const problem no_time = view.link.run([&] {
            std::vector<unsigned char> data;
            whole = read_fax_page(&pages, &data);
            if (whole)
                (*details)["pages"].push_back(measured(pages, &data));
            return true;
        });
        if (no_time)
            return no_time;
    }
    (*details)["whole"] = whole;
    return {};
}

problem view_details(fax_view_t *view, nlohmann::json *details)
{
    cached_ptr found;
    const problem failed = view_by(view, "details", &found, [&](cached_t *made) -> problem {
        const fax_entry &fax = view->fax;
        nlohmann::json object = {{"name", fax.name},
                                 {"sender", fax.sender},
                                 {"subaddress", fax.subaddress},
                                 {"size", fax.size},
                                 {"mtime", fax.mtime},
                                 {"is_fax", fax.is_fax},
                                 {"header", nlohmann::json::array()},
                                 {"pages", nlohmann::json::array()}};
        const problem unmeasured = measure_pages(*view, &object);
        made->bytes = object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        return unmeasured;
    });
    if (!failed)
        *details = nlohmann::json::parse(found->bytes);
    return failed;
}

// Documents.

problem view_document(fax_view_t *view, const std::string &form, cached_ptr *document, std::string *name)
{
    const fax_form_t *made_as = find_form(form);
    const problem failed = view_by(view, "as " + form, document, [&](cached_t *made) -> problem {
        cached_ptr fetched;
        fax_pages_t pages;
        if (!made_as)
            return fetch(*view, made);
        if (const problem unopened = open_view(*view, &fetched, &pages))
            return unopened;
        return view->link.run([&] {
            made->file = make_unnamed_file();
            if (!made->file)
                return complain_of_room();
            if (!made_as->write_document(&pages, {}, made->file.get()))
                return false;
            made->file_size = static_cast<size_t>(lseek(made->file.get(), 0, SEEK_END));
            return true;
        });
    });
    if (!failed)
        *name = made_as ? stem_of(view->fax) + made_as->extension : file_name_for(view->fax);
    return failed;
}

}  // namespace faxtray
