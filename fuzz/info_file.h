// A configuration file of any bytes: its sections, once written, read back as they were.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "check.h"
#include "config/info_file.h"

namespace faxtray {

// Every section as info_write() writes it. Values too long to be written whole are left out.
inline std::string rewritten(const void *bytes, size_t n)
{
    file_ptr in(fmemopen(const_cast<void *>(bytes), n, "rb"));
    char *text = nullptr;
    size_t size = 0;
    file_ptr out(open_memstream(&text, &size));
    check(in && out);
    while (av_list_ptr list{info_get(in.get(), nullptr, strcmp, nullptr)}) {
        for (av_node_t *node = list->nodes, *next; node; node = next) {
            next = node->next;
            if (strlen(node->value) > 250)
                av_delete(list.get(), node->attr);
        }
        if (*list->key)
            check(info_write(out.get(), list.get()) == 1);
    }
    out.reset();
    std::string result(text, size);
    free(text);
    return result;
}

inline void fuzz_info_file(const uint8_t *bytes, size_t n)
{
    if (n == 0 || n > 65536)
        return;
    std::string once = rewritten(bytes, n);
    if (!once.empty())
        check(rewritten(once.data(), once.size()) == once);
}

}  // namespace faxtray
