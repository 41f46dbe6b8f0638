// A fax file of any bytes: reading it from memory and from the file agree, and what is written reads back.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>

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
    fax_header_ptr parsed(parse_fax_header(bytes, n));

    unique_fd file(memfd_create("fax", MFD_CLOEXEC)), copy(memfd_create("copy", MFD_CLOEXEC));
    check(write(file.get(), bytes, n) == static_cast<ssize_t>(n));
    fax_header_ptr read(read_fax_header(file.get()));
    check(header_text(read.get()) == header_text(parsed.get()));
    if (!parsed)
        return;

    get_vertical_resolution(parsed.get());
    get_compression_mode(parsed.get());
    check(write_fax_header(copy.get(), parsed.get()) == 1);
    fax_header_ptr again(read_fax_header(copy.get()));
    check(header_text(again.get()) == header_text(parsed.get()));
}

}  // namespace faxtray
