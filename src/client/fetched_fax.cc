#include "client/fetched_fax.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "disk/unnamed_file.h"
#include "util/command_output.h"
#include "util/io.h"

namespace faxtray {

exit_status fetch_fax(session &s, const fax_entry &fax, const byte_sink &sink)
{
    bool fetched;
    {  // the bar is off the screen before anything else is printed
        progress_bar bar(printable(fax.name), fax.size);
        fetched = s.client.fetch(s.inbox, fax, [&](const char *bytes, size_t n) {
            bar.add(n);
            return sink(bytes, n);
        });
    }
    if (fetched)
        return EXIT_DONE;
    return s.client.failure().kind == client_failure::STOPPED ? EXIT_LOCAL
                                                              : report_failure(s.client, about(fax.id));
}

// Returns false, so that a caller can return its result.
static bool complain_of_room(const fax_entry &fax)
{
    fprintf(stderr, "faxtray: %sno room for it in $TMPDIR, or else /tmp: %s\n", about(fax.id).c_str(),
            strerror(errno));
    return false;
}

exit_status fetch_file(session &s, const fax_entry &fax, unique_fd *file)
{
    file->reset(make_unnamed_file().release());
    if (!*file) {
        complain_of_room(fax);
        return EXIT_LOCAL;
    }
    return fetch_fax(s, fax, [&](const char *bytes, size_t n) {
        return write_full(file->get(), bytes, n) || complain_of_room(fax);
    });
}

exit_status fetch_pages(session &s, const fax_entry &fax, fax_pages_t *pages)
{
    if (!fax.is_fax) {
        fprintf(stderr, "faxtray: %sno fax file, so it can be had only as it is (--as fax)\n",
                about(fax.id).c_str());
        return EXIT_REFUSED;
    }
    unique_fd file;
    const exit_status status = fetch_file(s, fax, &file);
    if (status != EXIT_DONE)
        return status;
    if (!open_fax_pages(std::move(file), "fax " + std::to_string(fax.id), pages))
        return EXIT_REFUSED;
    pages->received = fax.mtime;
    return EXIT_DONE;
}

exit_status find_whole_pages(fax_pages_t *pages, page_range_t *range)
{
    if (!find_pages(pages, range)) {
        range->last = range->first - 1;
        return EXIT_REFUSED;
    }
    const page_place_t first = {pages->next, pages->left};
    while (pages->next <= range->last && skip_fax_page(pages)) {
    }
    const bool whole = pages->next > range->last;
    if (!whole) {
        complain(*pages, "the file ends before the end of page " + std::to_string(pages->next));
        range->last = pages->next - 1;
    }
    if (!return_to_page(pages, first))
        return EXIT_LOCAL;
    return whole ? EXIT_DONE : EXIT_REFUSED;
}

exit_status decode_next_page(fax_pages_t *pages, page_image_t *image)
{
    std::vector<unsigned char> data;
    return read_fax_page(pages, &data) && decode_page(*pages, data, image) ? EXIT_DONE : EXIT_REFUSED;
}

}  // namespace faxtray
