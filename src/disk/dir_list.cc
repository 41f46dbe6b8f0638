// The names of a directory, all read when it is opened: what happens in the directory afterwards
// leaves the listing as it is.
#include "disk/dir_list.h"

#include <regex.h>
#include <sys/param.h>

#include <cerrno>
#include <cstring>

#include "util/owned.h"

namespace faxtray {

static constexpr size_t grow_by = 100;

struct dir_list_t {
    char **names;  // null-terminated
    size_t count, room;
    size_t cursor;    // the next name to look at
    regex_t pattern;  // valid while has_pattern
    bool has_pattern;
};

using dir_list_ptr = std::unique_ptr<dir_list_t, deleter<dir_close>>;

// Adds a copy of `name` and the null behind it. False without memory.
static bool add_name(dir_list_t *dir, const char *name)
{
    if (dir->count + 1 >= dir->room) {
        void *grown = realloc(dir->names, (dir->room + grow_by) * sizeof(char *));
        if (!grown)
            return false;
        dir->names = static_cast<char **>(grown);
        dir->room += grow_by;
    }
    char *copy = strdup(name);
    if (!copy)
        return false;
    dir->names[dir->count++] = copy;
    dir->names[dir->count] = nullptr;
    return true;
}

// Null with errno 0 at the end, so that a failure can be told from it.
static const dirent *next_entry(DIR *in)
{
    errno = 0;
    return readdir(in);
}

static dir_list_t *report_malloc()
{
    fprintf(stderr, "dir_open:  malloc fail 2\n");
    errno = ENOMEM;
    return nullptr;
}

dir_list_t *dir_open(const char *path)
{
    if (!path || strlen(path) >= MAXPATHLEN) {
        errno = path ? ENAMETOOLONG : EINVAL;
        return nullptr;
    }
    dir_ptr in(opendir(path));
    if (!in)
        return nullptr;
    dir_list_ptr dir(static_cast<dir_list_t *>(calloc(1, sizeof(dir_list_t))));
    if (!dir)
        return report_malloc();
    while (const dirent *entry = next_entry(in.get()))
        if (!add_name(dir.get(), entry->d_name))
            return report_malloc();
    if (errno != 0 || dir->count == 0)
        return nullptr;
    return dir.release();
}

const char *dir_grep(dir_list_t *dir, const char *pattern)
{
    if (pattern && *pattern) {
        if (dir->has_pattern)
            regfree(&dir->pattern);
        dir->has_pattern = regcomp(&dir->pattern, pattern, REG_EXTENDED | REG_NOSUB) == 0;
    }
    if (!dir->has_pattern) {
        errno = EINVAL;
        return nullptr;
    }
    while (dir->cursor < dir->count) {
        const char *name = dir->names[dir->cursor++];
        if (regexec(&dir->pattern, name, 0, nullptr, 0) == 0)
            return name;
    }
    return nullptr;
}

int dir_rewind(dir_list_t *dir)
{
    if (!dir)
        return 0;
    dir->cursor = 0;
    return 1;
}

void dir_close(dir_list_t *dir)
{
    if (!dir)
        return;
    for (size_t i = 0; i < dir->count; i++)
        free(dir->names[i]);
    free(dir->names);
    if (dir->has_pattern)
        regfree(&dir->pattern);
    free(dir);
}

}  // namespace faxtray
