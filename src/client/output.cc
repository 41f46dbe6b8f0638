// Tables are for people and may change; scripts use the JSON. Its numbers and names are as the server sent
// them, so nothing in it is cut or escaped for a terminal.
#include "client/output.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "util/command_output.h"

namespace faxtray {

std::string file_name_for(const fax_entry &fax)
{
    // No path, no hidden file, nothing that a command would take for an option, and no control characters.
    bool plain = !fax.name.empty() && fax.name[0] != '.' && fax.name[0] != '-' && fax.name.size() <= 255 &&
                 std::none_of(fax.name.begin(), fax.name.end(), [](char c) {
                     auto byte = static_cast<unsigned char>(c);
                     return c == '/' || byte < ' ' || byte == 0x7F;
                 });
    return plain ? fax.name : "fax-" + std::to_string(fax.id);
}

std::string named(const fax_entry &fax)
{
    return printable(fax.name) + (fax.sender.empty() ? "" : " (sender " + printable(fax.sender) + ")");
}

std::string date_text(time_t t)
{
    char text[64];
    tm parts;
    return localtime_r(&t, &parts) && strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts) ? text : "?";
}

static std::string pages_text(int pages)
{
    return pages < 0 ? "-" : std::to_string(pages);
}

void print_fax_row(const fax_entry &fax, int sender_width, const std::string &name)
{
    printf("%10u  %-16s  %10u  %5s  %-*s  %s\n", fax.id, date_text(fax.mtime).substr(0, 16).c_str(), fax.size,
           pages_text(fax.pages).c_str(), sender_width, printable(fax.sender).c_str(),
           printable(name).c_str());
}

void print_faxes(const std::deque<fax_entry> &faxes)
{
    if (faxes.empty()) {
        puts("no faxes");
        return;
    }
    // The column is as wide as the longest sender, but one long sender does not push all names off the
    // screen.
    size_t sender_width = 6;
    for (const fax_entry &fax : faxes)
        sender_width = std::max(sender_width, std::min(printable(fax.sender).size(), size_t{24}));
    const int width = static_cast<int>(sender_width);
    printf("%10s  %-16s  %10s  %5s  %-*s  %s\n", "FAXID", "RECEIVED", "SIZE", "PAGES", width, "SENDER",
           "NAME");
    for (const fax_entry &fax : faxes)
        print_fax_row(fax, width, fax.name);
}

void print_fax(const fax_entry &fax)
{
    printf("fax id:     %u\n", fax.id);
    printf("name:       %s\n", printable(fax.name).c_str());
    printf("received:   %s\n", date_text(fax.mtime).c_str());
    printf("size:       %u bytes\n", fax.size);
    printf("pages:      %s\n", pages_text(fax.pages).c_str());
    printf("sender:     %s\n", printable(fax.sender).c_str());
    printf("subaddress: %s\n", printable(fax.subaddress).c_str());
    printf("password:   %s\n", printable(fax.pwd_frame).c_str());
    printf("fax file:   %s\n", fax.is_fax ? "yes" : "no");
}

// Field names are a promise to scripts; a field may be added, none renamed.
nlohmann::json to_json(const fax_entry &fax)
{
    return {{"faxid", fax.id},
            {"name", fax.name},
            {"sender_fax", fax.sender},
            {"subaddress", fax.subaddress},
            {"pwd_frame", fax.pwd_frame},
            {"pages", fax.pages},
            {"is_fax", fax.is_fax},
            {"size", fax.size},
            {"mtime", fax.mtime}};
}

// One at a time: as an nlohmann::json, a large inbox would take ten times the memory that it has as a
// listing.
void print_faxes_json(const std::deque<fax_entry> &faxes)
{
    const char *before = "[\n  ";
    for (const fax_entry &fax : faxes) {
        std::string text = json_text(to_json(fax));
        for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 3)
            text.insert(at + 1, "  ");
        printf("%s%s", before, text.c_str());
        before = ",\n  ";
    }
    puts(faxes.empty() ? "[]" : "\n]");
}

}  // namespace faxtray
