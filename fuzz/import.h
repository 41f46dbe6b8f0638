// A document of any bytes: what is imported is a fax whose pages decode without damage, as many as there
// were.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "check.h"
#include "document/fax_maker.h"
#include "document/fax_pages.h"
#include "document/pbm_reader.h"
#include "document/png_reader.h"
#include "document/tiff_reader.h"
#include "faxfile/fax_params.h"

namespace faxtray {

using open_reader = page_source_ptr(unique_fd, std::string *);

// The pixels of all pages, as far as they can be told.
inline long pixels_of(page_source *source)
{
    page_form_t form;
    long pixels = 0;
    while (source->next(&form) == page_source::PAGE)
        pixels += form.width * form.height;
    return pixels;
}

inline unique_fd in_memory(const uint8_t *bytes, size_t n)
{
    unique_fd file(memfd_create("document", MFD_CLOEXEC));
    check(write(file.get(), bytes, n) == static_cast<ssize_t>(n) && lseek(file.get(), 0, SEEK_SET) == 0);
    return file;
}

// The first byte chooses coding and resolution.
inline void fuzz_import(const uint8_t *bytes, size_t n, open_reader open)
{
    if (n < 1 || n > 65536)
        return;
    std::string why;
    // A few bytes can be a page that takes seconds.
    page_source_ptr source = open(in_memory(bytes + 1, n - 1), &why);
    if (!source || pixels_of(source.get()) > 1 << 21)
        return;
    source = open(in_memory(bytes + 1, n - 1), &why);
    check(source != nullptr);

    static constexpr int dfs[4] = {-1, DF_MH, DF_MR, DF_MMR};
    fax_wishes_t wishes;
    wishes.df = dfs[bytes[0] & 3];
    wishes.vr = (bytes[0] >> 2) % 3 - 1;
    unique_fd file(memfd_create("fax", MFD_CLOEXEC));
    const ending_signals_held signals;
    reason_t reason;
    long pages;
    if (!make_fax(source.get(), wishes, file.get(), signals, &pages, &reason)) {
        check(!reason.text.empty());
        return;
    }
    fax_pages_t fax;
    std::vector<unsigned char> data;
    check(open_fax_pages(std::move(file), "fax", &fax) && fax.pages == pages);
    while (fax.next <= fax.pages) {
        check(read_fax_page(&fax, &data));
        const page_info_t page = look_at_page(fax.df, data);
        check(page.decoded && page.counts.lines > 0 && page.counts.repeated == 0 &&
              page.counts.ended_short == 0);
    }
    check(fax.left == 0);
}

inline void fuzz_import_tiff(const uint8_t *bytes, size_t n)
{
    fuzz_import(bytes, n, open_tiff);
}

inline void fuzz_import_pbm(const uint8_t *bytes, size_t n)
{
    fuzz_import(bytes, n, open_pbm);
}

inline void fuzz_import_png(const uint8_t *bytes, size_t n)
{
    fuzz_import(bytes, n, open_png);
}

}  // namespace faxtray
