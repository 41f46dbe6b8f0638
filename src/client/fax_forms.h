// fax_forms: the forms in which a user can have a fax, and the names of their files.
#pragma once

#include <string>
#include <vector>

#include "client/inbox_client.h"
#include "document/page_image.h"

namespace faxtray {

struct fax_form_t {
    const char *name, *extension;  // "tiff", ".tif"
    // One of them is null: a form is a document of pages, or an image of one page. They are the writers of
    // the room document, and fail with a message on standard error.
    bool (*write_document)(fax_pages_t *fax, page_range_t pages, int fd);
    bool (*write_image)(const page_image_t &page, int vertical_dpi, int fd);
};

// The form of that name; null for "fax", which is the fax as it is.
const fax_form_t *find_form(const std::string &name);

std::vector<std::string> form_names();  // of all forms, "fax" among them

// What the names of a fax's files begin with: its own name without ".fax", made safe (file_name_for).
std::string stem_of(const fax_entry &fax);

// The file name of page `page` of `pages`: with the number in as many digits as the last page's has, three at
// least, so that the names sort.
std::string page_name(const std::string &stem, long page, long pages, const fax_form_t &form);

}  // namespace faxtray
