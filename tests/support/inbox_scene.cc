#include "support/inbox_scene.h"

#include <unistd.h>

#include <cstring>

#include "util/settings.h"

namespace faxtray {

inbox_scene::inbox_scene()
    : user(new_user_node(dir.path().c_str(), pw_req_ptr(new_pw("joe", "", "", 0, 7)), nullptr))
{
    Update_slop = 60;
}

void inbox_scene::put(const std::string &name, time_t mtime, const std::string &content)
{
    set_mtime(dir.write(name, content), mtime);
}

void inbox_scene::remove(const std::string &name)
{
    unlink((dir / name.c_str()).c_str());
}

std::string names_of(const file_node_t *head)
{
    std::string all;
    for (; head; head = head->next) {
        if (!all.empty())
            all += ' ';
        all += head->name;
    }
    return all;
}

std::string inbox_scene::names()
{
    return names_of(user->index->head);
}

faxid_t inbox_scene::id(const char *name)
{
    for (const file_node_t *node = user->index->head; node; node = node->next)
        if (strcmp(node->name, name) == 0)
            return node->faxid;
    return 0;
}

std::string inbox_scene::slice(int faxid, int how, int count, u_int check_value)
{
    err_t error = {};
    const file_list_t *list = get_index(user.get(), check_value, faxid, how, count, &error);
    return list ? names_of(list->head) : std::to_string(error.code) + ": " + error.message;
}

}  // namespace faxtray
