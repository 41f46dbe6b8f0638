// Tables for people, JSON for scripts.
#include "client/output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <cwctype>
#include <nlohmann/json.hpp>

namespace faxtray {

std::string printable(const std::string &text)
{
    std::string shown;
    std::mbstate_t state = {};
    for (size_t i = 0; i < text.size();) {
        wchar_t wide = 0;
        size_t length = std::mbrtowc(&wide, text.data() + i, text.size() - i, &state);
        if (length == 0 || length > text.size() || !std::iswprint(static_cast<wint_t>(wide))) {
            char escaped[8];
            snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(text[i]));
            shown += escaped;
            state = {};
            i++;
        } else {
            shown += text[i] == '\\' ? "\\\\" : text.substr(i, length);
            i += length;
        }
    }
    return shown;
}

std::string printable_lines(const std::string &text)
{
    std::string shown;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        shown += (begin == 0 ? "" : "\n  ") + printable(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return shown;
}

std::string file_name_for(const fax_entry &fax)
{
    bool plain = !fax.name.empty() && fax.name[0] != '.' && fax.name[0] != '-' && fax.name.size() <= 255 &&
                 std::none_of(fax.name.begin(), fax.name.end(), [](char c) {
                     auto byte = static_cast<unsigned char>(c);
                     return c == '/' || byte < ' ' || byte == 0x7F;
                 });
    return plain ? fax.name : "fax-" + std::to_string(fax.id);
}

// As "2026-11-21 04:39:13", local time.
static std::string date_text(time_t t)
{
    char text[64];
    tm parts;
    return localtime_r(&t, &parts) && strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts) ? text : "?";
}

static std::string pages_text(int pages)
{
    return pages < 0 ? "-" : std::to_string(pages);
}

void print_faxes(const std::vector<fax_entry> &faxes)
{
    if (faxes.empty()) {
        puts("no faxes");
        return;
    }
    size_t sender_width = 6;
    for (const fax_entry &fax : faxes)
        sender_width = std::max(sender_width, std::min(printable(fax.sender).size(), size_t{24}));
    const int width = static_cast<int>(sender_width);
    printf("%10s  %-16s  %10s  %5s  %-*s  %s\n", "FAXID", "RECEIVED", "SIZE", "PAGES", width, "SENDER",
           "NAME");
    for (const fax_entry &fax : faxes)
        printf("%10u  %-16s  %10u  %5s  %-*s  %s\n", fax.id, date_text(fax.mtime).substr(0, 16).c_str(),
               fax.size, pages_text(fax.pages).c_str(), width, printable(fax.sender).c_str(),
               printable(fax.name).c_str());
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

void print_json(const nlohmann::json &value)
{
    puts(value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

progress_bar::progress_bar(std::string what, u_int total)
    : what_(std::move(what)), total_(total), shown_(isatty(STDERR_FILENO) == 1)
{
    add(0);
}

progress_bar::~progress_bar()
{
    if (shown_)
        fputs("\r\x1b[K", stderr);
}

void progress_bar::add(size_t bytes)
{
    done_ += bytes;
    if (!shown_)
        return;
    constexpr int width = 30;
    unsigned percent = total_ ? static_cast<unsigned>(done_ * 100 / total_) : 100;
    std::string bar(percent * width / 100, '#');
    bar.resize(width, '.');
    fprintf(stderr, "\r%s [%s] %3u %%  %llu of %llu KB", what_.c_str(), bar.c_str(), percent, done_ / 1024,
            total_ / 1024);
    fflush(stderr);
}

}  // namespace faxtray
