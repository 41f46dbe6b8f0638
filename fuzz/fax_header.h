// A fax file of any bytes: what is found in memory and what is read from the file agree, and a header that is
// written reads back.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "check.h"
#include "faxfile/fax_header.h"

namespace faxtray {

inline std::string header_text(const fax_header_t *list)
{
    std::string text;
    for (; list; list = list->next)
        text.append(list->name).append(":").append(list->value).append("\n");
    return text;
}

inline void fuzz_fax_header(const uint8_t *bytes, size_t n)
{
    if (n > 65536)
        return;
    unique_fd file(memfd_create("fax", MFD_CLOEXEC)), copy(memfd_create("copy", MFD_CLOEXEC));
    check(write(file.get(), bytes, n) == static_cast<ssize_t>(n));
    fax_header_ptr list(read_fax_header(file.get()));

    std::vector<const char *> names, values;
    for (const fax_header_t *node = list.get(); node && names.size() < 8; node = node->next)
        names.push_back(node->name);
    values.resize(names.size());
    std::vector<char> block(bytes, bytes + n);
    check(find_fax_header_values(block.data(), n, names.data(), values.data(), names.size()) ==
          (list != nullptr));
    for (size_t i = 0; i < names.size(); i++)
        check(strcmp(values[i], get_fax_header_value(list.get(), names[i])) == 0);
    if (!list)
        return;

    get_vertical_resolution(list.get());
    get_compression_mode(list.get());
    check(write_fax_header(copy.get(), list.get()) == 1);
    fax_header_ptr again(read_fax_header(copy.get()));
    check(header_text(again.get()) == header_text(list.get()));
}

}  // namespace faxtray
