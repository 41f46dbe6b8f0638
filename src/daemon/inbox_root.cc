// Without this directory no inbox can be created; a new installation need not provide it.
#include "daemon/inbox_root.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "inbox/inbox_lists.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/text.h"

namespace faxtray {

// The entry with exactly that key. Kept: not av_get with munged_strcmp, so "[Default]" is no default here.
static const av_list_t *find_exact(const av_list_t *table, const char *key)
{
    while (table && strcmp(table->key, key) != 0)
        table = table->next;
    return table;
}

int mk_inbox_root(const av_list_t *metausers)
{
    const av_list_t *defaults = find_exact(metausers, "default");
    if (!defaults) {
        fprintf(stderr, "mk_inbox_root: Missing or invalid \"%s\" metauser.\n", "default");
        return 0;
    }
    const char *value = av_getv(defaults, "delivery_dir_root");
    if (is_empty(value)) {
        fprintf(stderr, "mk_inbox_root: Missing or invalid %s value: [%s].\n", "default", shown(value));
        return 0;
    }
    const c_string path(mkpath(value));
    if (!path) {
        fprintf(stderr, "mk_inbox_root: mkpath failed: Can't create inbox root.\n");
        return 0;
    }

    // mkdir first and stat only if something exists there: no other process can slip in between.
    if (mkdir(path.get(), 0755) == 0)
        return 1;
    if (errno != EEXIST) {
        // Kept: it says mkpath where mkdir failed; administrators search logs for the text as it is.
        fprintf(stderr, "mk_inbox_root: mkpath failed: Can't create inbox root: %s.\n", strerror(errno));
        return 0;
    }
    struct stat st;
    if (stat(path.get(), &st) != 0) {
        fprintf(stderr, "mk_inbox_root: stat failed: Invalid inbox root: %s.\n", strerror(errno));
        return 0;
    }
    if (S_ISDIR(st.st_mode))
        return 1;
    fprintf(stderr, "mk_inbox_root: Inbox root is not a directory: [%s].\n", path.get());
    return 0;
}

int load_first_lists(bool *has_root)
{
    const int read = read_lists();
    // Without a user list there is no name yet: somebody may be writing it.
    *has_root = User_list.metausers.head() && mk_inbox_root(User_list.metausers.head());
    return settle_users() && read;
}

}  // namespace faxtray
