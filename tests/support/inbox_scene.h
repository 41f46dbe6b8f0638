// inbox_scene: an inbox directory with files of given age in it, and the node that serves it.
#pragma once

#include <string>

#include "inbox/inbox_index.h"
#include "support/site.h"

namespace faxtray {

class inbox_scene {
public:
    inbox_scene();
    inbox_scene(const inbox_scene &) = delete;
    inbox_scene &operator=(const inbox_scene &) = delete;

    void put(const std::string &name, time_t mtime, const std::string &content = "no fax");
    void remove(const std::string &name);

    fax_index_t *index() { return user->index; }
    std::string names();           // as listed, with a blank between
    faxid_t id(const char *name);  // 0 when it is not listed
    std::string slice(int faxid, int how, int count, u_int check_value = 0);  // names, or "code: message"

    temp_dir dir;
    user_node_ptr user;
};

std::string names_of(const file_node_t *head);

}  // namespace faxtray
