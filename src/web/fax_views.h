// fax_views: what a user sees of a fax: its pages as pictures, what is known of it, and documents of it. What
// has been made is kept in the cache, and is looked for there only once the server has accepted the user for
// this fax of this inbox, in this request.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "web/page_cache.h"
#include "web/server_link.h"

namespace faxtray {

// A fax as the page names it: `tag` is that of the fax which the user saw under the id.
struct fax_ref_t {
    inbox_ref inbox;
    faxid_t id = 0;
    std::string tag;
};

// A text that two faxes share only if they have the same name, size and time.
std::string tag_of(const fax_entry &fax);

// Asks the server for the fax of that id; a problem if it is not the one of that tag.
problem find_shown_fax(server_link &link, const fax_ref_t &ref, fax_entry *fax);

struct fax_view_t {
    server_link &link;
    page_cache &cache;
    const fax_ref_t &ref;
    fax_entry fax = {};  // as the server lists it, from the first call on
};

// All that is known of the fax: {name, sender, ..., header, pages}.
problem view_details(fax_view_t *view, nlohmann::json *details);

// A page as PNG, in square pixels: every line of it at least once, none mixed with others.
problem view_page(fax_view_t *view, long page, cached_ptr *png);

problem view_thumbnail(fax_view_t *view, cached_ptr *png);  // the first page, in grey

// The fax as "fax", "pdf" or "tiff"; `name` is a name for its file.
problem view_document(fax_view_t *view, const std::string &form, cached_ptr *document, std::string *name);

}  // namespace faxtray
