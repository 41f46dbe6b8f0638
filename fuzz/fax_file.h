// A fax file of any bytes: re-coding it keeps all lines or
// leaves it as it was, and no other file is left beside it.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "check.h"
#include "codec/change_format.h"
#include "document/fax_pages.h"
#include "t4_page.h"
#include "tools/fax_info.h"

namespace faxtray {

// The lines of the pages, as many as the header says and the file holds.
inline std::vector<page_t> pages_of(const std::string &path)
{
    std::vector<page_t> pages;
    std::vector<unsigned char> data;
    fax_pages_t fax;
    open_fax_pages(path, &fax);
    while (fax.next <= fax.pages && read_fax_page(&fax, &data))
        pages.push_back(decode({data.begin(), data.end()}, fax.df).lines);
    return pages;
}

// The first byte chooses the coding to be written.
inline void fuzz_fax_file(const uint8_t *bytes, size_t n)
{
    static constexpr int dfs[4] = {DF_MH, DF_MR, DF_MMR, DF_UMMR};
    static const std::string white_line(216, '\0');
    if (n < 1 || n > 8192)
        return;
    namespace fs = std::filesystem;
    const int to = dfs[bytes[0] & 3];
    const fs::path dir = "/dev/shm/fuzz_fax_file." + std::to_string(getpid()), path = dir / "fax";
    fs::create_directory(dir);
    const std::string content(bytes + 1, bytes + n);
    std::ofstream(path, std::ios::binary) << content;

    fax_pages_t fax;
    const int from = open_fax_pages(path, &fax) ? fax.df : -1;
    std::vector<page_t> lines = pages_of(path);
    const bool done = t4dec_change_format(path.c_str(), to, 0, nullptr) == 1;
    check(std::distance(fs::directory_iterator(dir), {}) == 1);
    if (!done || from == to) {
        std::ifstream in(path, std::ios::binary);
        check(std::string(std::istreambuf_iterator<char>(in), {}) == content);
    } else {
        for (page_t &page : lines) {
            // MH gains a white line at its end too, but the reader loses the last one, which no EOL follows.
            // T.6 has no page without lines.
            if (to == DF_MH || (to == DF_MMR && page.empty()))
                page.insert(page.begin(), white_line);
        }
        check(open_fax_pages(path, &fax) && fax.df == to && pages_of(path) == lines);
        print_fax_info(path, true);
    }
    fs::remove_all(dir);
}

}  // namespace faxtray
