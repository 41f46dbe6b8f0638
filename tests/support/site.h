// site: a temporary installation: USER_LIST.info, MODEMS.info, inboxes and faxes.
//
// Two users, "Al Smith" (no password) and "Bea" (password "halyard", forwarder for the incoming inbox
// "Front Desk"), and a group "team"; one modem, whose incoming directory is that inbox. Every file
// that is written gets a time of its own, later than all before and years in the past.
#pragma once

#include <ctime>
#include <string>

#include "support/temp_dir.h"

namespace faxtray {

class site {
public:
    site();

    const std::string &path() const { return dir_.path(); }
    std::string operator/(const char *name) const { return dir_ / name; }
    std::string inbox(const char *user) const { return path() + "/faxtrayes/" + user; }  // mapped name
    std::string incoming() const { return path() + "/incoming"; }
    std::string handle() const;  // of the incoming inbox, as clients name it

    void write_users(const std::string &more = "") const;  // the users above and more sections
    void write_modems() const;

    // Puts a file into `directory` (made when missing) and returns its content.
    std::string add(const std::string &directory, const std::string &name, const std::string &content) const;
    // A fax with a sound header and `size` bytes of pages.
    std::string add_fax(const std::string &directory, const std::string &name, size_t size = 1000) const;
    void add_faxes(const std::string &directory, int count) const;  // f000, f001, ...

private:
    temp_dir dir_;
    mutable time_t clock_ = 1'700'000'000;
};

// What the fax file format asks for: magic, length, lines, terminator, then the pages.
std::string fax_bytes(const std::string &lines, const std::string &pages = "pages");

}  // namespace faxtray
