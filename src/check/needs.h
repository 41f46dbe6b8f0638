// needs: the programs of this machine that the users' entries call for.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "config/av_list.h"

namespace faxtray {

// Of all users together.
struct needs_t {
    std::set<int> formats;  // of files that are delivered (AS_DELIVERY_FILE_FORMAT)
    bool mail = false, notices = false, short_names = false;
};

void add_needs(const av_list_t *user, needs_t &needs);

// The converters of a file format, as the daemon calls them; none for most.
std::vector<std::string> converters_of(int format);

// Whether the shell would find the command, by a path or in $PATH.
bool is_command(const std::string &name);

}  // namespace faxtray
