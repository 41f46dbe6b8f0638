#include "support/site.h"

#include <cstdio>
#include <filesystem>

#include "support/wire.h"
#include "util/short_hash.h"

namespace faxtray {

site::site()
{
    for (const char *dir : {"work", "incoming", "faxtrayes", "tmp"})
        std::filesystem::create_directory(dir_ / dir);
    write_users();
    write_modems();
}

std::string site::handle() const
{
    return passwd(incoming().c_str());
}

static const std::string users =
    "[Al Smith]\nhuman_name = Al\n"
    "[Bea]\npassword = 2fc7b405\nhuman_name = Beatrice\nforwarder = Front Desk\n"
    "[team]\ngroup = Al Smith,Bea\ngroup_gui = The Team\ndelivery_method = email\n";

void site::write_users(const std::string &more) const
{
    add(path(), "USER_LIST.info", "[default]\ndelivery_dir_root = " + path() + "/faxtrayes\n" + users + more);
}

void site::write_modems() const
{
    add(path(), "MODEMS.info", "[ttyS0]\nincoming_dir = " + incoming() + "\nincoming_gui = Front Desk\n");
}

std::string site::add(const std::string &directory, const std::string &name, const std::string &content) const
{
    std::filesystem::create_directories(directory);
    std::string path = dir_.write("being-written", content);
    set_mtime(path, ++clock_);
    std::filesystem::rename(path, directory + "/" + name);
    return content;
}

std::string site::add_fax(const std::string &directory, const std::string &name, size_t size) const
{
    std::string pages(size, '\0');
    uint32_t state = static_cast<uint32_t>(clock_);
    for (char &byte : pages)  // no two faxes alike, no chunk like the next
        byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
    return add(directory, name, fax_bytes("#PAGES:3\nSENDER_FAX#:+44 20 7946 0000\nCOMPRESSION:3\n", pages));
}

void site::add_faxes(const std::string &directory, int count) const
{
    for (int n = 0; n < count; n++) {
        char name[16];
        snprintf(name, sizeof name, "f%03d", n);
        add_fax(directory, name, 10);
    }
}

std::string fax_bytes(const std::string &lines, const std::string &pages)
{
    return "\xBA\xDB\xAD\x16" + word(static_cast<uint32_t>(lines.size()) + 1) + lines + '\x1D' + pages;
}

}  // namespace faxtray
