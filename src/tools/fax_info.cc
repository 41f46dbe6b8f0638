// The same facts twice: as text, page by page while the file is read, and as one JSON object.
#include "tools/fax_info.h"

#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <vector>

#include "document/fax_pages.h"
#include "faxfile/fax_params.h"
#include "util/command_output.h"

namespace faxtray {

// A page that was not decoded has no counts to print.
static void print_page(long number, const page_info_t &page)
{
    printf("%4ld  %8zu", number, page.bytes);
    if (page.decoded)
        printf("  %6ld  %8ld  %5ld\n", page.counts.lines, page.counts.repeated, page.counts.ended_short);
    else
        printf("  %6s  %8s  %5s\n", "-", "-", "-");
}

static nlohmann::json to_json(const page_info_t &page)
{
    nlohmann::json object = {{"bytes", page.bytes}};
    if (page.decoded)
        object.update({{"lines", page.counts.lines},
                       {"repeated", page.counts.repeated},
                       {"ended_short", page.counts.ended_short}});
    return object;
}

// Prints the header's attributes, the codes among them with their meaning, and the heads of the columns.
static void print_header(const fax_pages_t &fax)
{
    for (const fax_header_t *node = fax.header.get(); node; node = node->next) {
        printf("%s: %s", printable(node->name).c_str(), printable(node->value).c_str());
        if (strcmp(node->name, "RESOLUTION") == 0)
            printf(" (%s)", VRtostring(asciitoVR(static_cast<signed char>(node->value[0]))));
        putchar('\n');
    }
    printf("coding: %s\n\n%4s  %8s  %6s  %8s  %5s\n", DFtostring(fax.df), "PAGE", "BYTES", "LINES",
           "REPEATED", "SHORT");
}

bool print_fax_info(const std::string &path, bool json)
{
    fax_pages_t fax;
    if (!open_fax_pages(path, &fax))
        return false;

    // Text is printed as it comes, page by page; JSON is collected and printed last, so that it is complete
    // even for a damaged file.
    nlohmann::json object = {{"file", path},
                             {"header", nlohmann::json::object()},
                             {"coding", DFtostring(fax.df)},
                             {"pages", nlohmann::json::array()}};
    for (const fax_header_t *node = fax.header.get(); node; node = node->next)
        object["header"][node->name] = node->value;
    if (!json)
        print_header(fax);

    // A page that cannot be decoded does not keep the others from
    // being printed; one that is cut off is the last.
    bool whole = true, decoded = true;
    std::vector<unsigned char> data;
    progress_bar bar(printable(path), fax.pages, progress_bar::PAGES);
    while (fax.next <= fax.pages && (whole = read_fax_page(&fax, &data))) {
        const page_info_t page = look_at_page(fax.df, data);
        if (json) {
            object["pages"].push_back(to_json(page));
            bar.add(1);
        } else {
            print_page(fax.next - 1, page);
        }
        decoded = decoded && page.decoded;
    }
    if (!decoded)
        complain(fax, "there are pages that cannot be decoded");
    if (whole && fax.left > 0 && !json)
        printf("and %zu bytes after the last page\n", fax.left);
    if (json) {
        object["whole"] = whole;
        print_json(object);
    }
    return whole && decoded;
}

}  // namespace faxtray
