// web_files: the page itself: the files of the directory web/, compiled in.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace faxtray {

struct web_file_t {
    const char *name;  // "app.js"
    const char *type;  // "text/javascript; charset=utf-8"
    std::string_view bytes;
};

// The file of that name; "" is index.html. Null if there is none.
const web_file_t *find_web_file(std::string_view name);

// The table, which CMake makes (web/embed.cmake).
extern const web_file_t web_files[];
extern const size_t web_file_count;

}  // namespace faxtray
