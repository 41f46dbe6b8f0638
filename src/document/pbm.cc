// A PBM file begins with its height, so every page is decoded twice: to count its lines, then to write them.
// This way no page is held in memory, however many lines it has.
#include "document/pbm.h"

#include <cstdio>

#include "disk/whole_file.h"
#include "document/fax_pages.h"
#include "util/command_output.h"

namespace faxtray {

// The page being written. Global, because decoders pass no context to their callbacks.
static whole_file *output;
static std::string buffer;
static bool written;  // all of it so far

static void write_buffer()
{
    written = written && output->write(buffer.data(), buffer.size());
    buffer.clear();
}

static void write_line(const unsigned char *line, int bytes)
{
    buffer.append(reinterpret_cast<const char *>(line), static_cast<size_t>(bytes));
    if (buffer.size() >= 65536)  // a line alone is too little for a write
        write_buffer();
}

// Writes one page whole, or not at all.
static bool write_page(const std::string &path, int df, const std::vector<unsigned char> &data)
{
    const stdout_on_stderr no_output;  // of the decoder's messages
    const page_info_t page = look_at_page(df, data);
    if (!page.decoded) {
        fprintf(stderr, "faxconv: %s: the page cannot be decoded\n", path.c_str());
        return false;
    }
    whole_file file;
    // Lines arrive by callback and are gathered; the first failure to write is remembered.
    if (!file.begin(path, true))
        return false;
    output = &file;
    written = true;
    buffer = "P4\n" + std::to_string(Pix_width) + " " + std::to_string(page.counts.lines) + "\n";
    t4_callbacks_t callbacks;
    callbacks.line = write_line;
    const bool decoded = t4dec(data.data(), data.size(), df, callbacks) == 1;
    write_buffer();
    return decoded && written && file.keep();
}

bool write_pbm_pages(const std::string &path, const std::string &prefix)
{
    fax_pages_t fax;
    if (!open_fax_pages(path, &fax))
        return false;
    std::vector<unsigned char> data;
    progress_bar bar(printable(path), fax.pages, progress_bar::PAGES);
    while (fax.next <= fax.pages) {
        char number[32];
        snprintf(number, sizeof number, "-%03ld.pbm", fax.next);
        if (!read_fax_page(&fax, &data) || !write_page(prefix + number, fax.df, data))
            return false;
        bar.add(1);
    }
    return true;
}

}  // namespace faxtray
