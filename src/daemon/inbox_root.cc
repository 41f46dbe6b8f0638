// Makes sure that the delivery root directory exists.
#include "daemon/inbox_root.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/owned.h"
#include "util/paths.h"

namespace faxtray {

static const av_list_t *find_exact(const av_list_t *table, const char *key)
{
    while (table && strcmp(table->key, key) != 0)
        table = table->next;
    return table;
}

int mk_inbox_root(const av_list_t *metausers)
{
    const av_list_t *defaults = find_exact(metausers, "default");
    if (defaults == nullptr) {
        fprintf(stderr, "mk_inbox_root: Missing or invalid \"%s\" metauser.\n", "default");
        return ROOT_MISSING;
    }
    const char *value = av_getv(defaults, "delivery_dir_root");
    if (value == nullptr || value[0] == '\0') {
        fprintf(stderr, "mk_inbox_root: Missing or invalid %s value: [%s].\n", "default",
                value ? value : "(null)");
        return ROOT_MISSING;
    }
    const c_string path(mkpath(value));
    if (!path) {
        fprintf(stderr, "mk_inbox_root: mkpath failed: Can't create inbox root.\n");
        return ROOT_MISSING;
    }

    if (mkdir(path.get(), 0755) == 0)
        return ROOT_MADE;
    if (errno != EEXIST) {
        fprintf(stderr, "mk_inbox_root: mkpath failed: Can't create inbox root: %s.\n", strerror(errno));
        return ROOT_MISSING;
    }
    struct stat st;
    if (stat(path.get(), &st) != 0) {
        fprintf(stderr, "mk_inbox_root: stat failed: Invalid inbox root: %s.\n", strerror(errno));
        return ROOT_MISSING;
    }
    if (S_ISDIR(st.st_mode))
        return ROOT_EXISTS;
    fprintf(stderr, "mk_inbox_root: Inbox root is not a directory: [%s].\n", path.get());
    return ROOT_MISSING;
}

}  // namespace faxtray
