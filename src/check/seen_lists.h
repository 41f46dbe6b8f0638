// seen_lists: USER_LIST.info and MODEMS.info as the daemon reads them, and where each of their lines is.
#pragma once

#include <deque>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "check/problems.h"
#include "config/av_table.h"

namespace faxtray {

struct seen_attribute_t {
    std::string name, value;  // as kept
    long line;
};

struct seen_section_t {
    std::string key;
    long line;
    std::vector<seen_attribute_t> attributes;       // in the order of the file
    std::unordered_map<std::string, size_t> index;  // by name: the last, which is the one that counts

    const seen_attribute_t *find(const std::string &name) const;  // the one that counts; null: none
};

struct seen_list_t {
    std::string path;
    bool is_read = false;                 // else there is nothing in it, and a problem says why
    std::deque<seen_section_t> sections;  // in the order of the file
    av_list_ptr built_in;                 // the settings that hold without any file
    av_list_ptr defaults;                 // with the section "default" over them

    place_t at(long line) const { return {path, line}; }

    // The sections that count, the first, of exactly these keys; null: none.
    const seen_section_t *default_section = nullptr, *admin_section = nullptr;

    // Where an entry's attribute is set: in its section, which may be null, or in "default"; else the
    // section's own line.
    place_t place_of(const seen_section_t *section, const char *attribute) const;
};

struct seen_users_t : seen_list_t {
    av_list_ptr built_in_admin;
    av_table_t users;  // as the daemon's: "admin" first, then in the order of the file; defaults filled in

    // The section that an entry of `users` comes from; null for an administrator without one.
    const seen_section_t *section_of(const av_list_t *user) const;

    std::map<std::string, const seen_section_t *> by_key;  // the last section of each key
};

struct seen_line_t {
    const seen_section_t *section;
    av_list_ptr entry;  // with an absolute incoming_dir
};

struct seen_modems_t : seen_list_t {
    std::vector<seen_line_t> lines;  // those that the daemon looks at; not "default"
};

// Read a list; `path` null or "": the one that the daemon would find. What the reader drops, cuts or leaves
// out is added to `problems`.
void see_users(const char *path, problems_t &problems, seen_users_t *list);
void see_modems(const char *path, problems_t &problems, seen_modems_t *list);

}  // namespace faxtray
