#include "web/web_files.h"

namespace faxtray {

const web_file_t *find_web_file(std::string_view name)
{
    if (name.empty())
        name = "index.html";
    for (size_t n = 0; n < web_file_count; n++)
        if (name == web_files[n].name)
            return &web_files[n];
    return nullptr;
}

}  // namespace faxtray
