#include "client/fax_forms.h"

#include <algorithm>
#include <cstdio>

#include "client/output.h"
#include "document/pbm.h"
#include "document/pdf_writer.h"
#include "document/png_writer.h"
#include "document/tiff_writer.h"

namespace faxtray {

static bool write_bitmap(const page_image_t &page, int, int fd)
{
    return write_pbm(page, fd);  // has no room for a resolution
}

static constexpr fax_form_t forms[] = {{"tiff", ".tif", write_tiff, nullptr},
                                       {"pdf", ".pdf", write_pdf, nullptr},
                                       {"png", ".png", nullptr, write_png},
                                       {"pbm", ".pbm", nullptr, write_bitmap}};

const fax_form_t *find_form(const std::string &name)
{
    for (const fax_form_t &form : forms)
        if (name == form.name)
            return &form;
    return nullptr;
}

std::vector<std::string> form_names()
{
    std::vector<std::string> names = {"fax"};
    for (const fax_form_t &form : forms)
        names.emplace_back(form.name);
    return names;
}

// Delivered faxes end in ".fax"; receivers name theirs as they like, so a name is not cut at any other dot.
std::string stem_of(const fax_entry &fax)
{
    const std::string name = file_name_for(fax), ending = ".fax";
    const bool ends_so = name.size() > ending.size() && name.ends_with(ending);
    return ends_so ? name.substr(0, name.size() - ending.size()) : name;
}

std::string page_name(const std::string &stem, long page, long pages, const fax_form_t &form)
{
    const size_t digits = std::max(std::to_string(pages).size(), size_t{3});
    char number[32];
    snprintf(number, sizeof number, "-%0*ld", static_cast<int>(digits), page);
    return stem + number + form.extension;
}

}  // namespace faxtray
