#include "disk/dir_list.h"

#include <regex.h>
#include <sys/param.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "util/owned.h"

namespace faxtray {

namespace {

class pattern_t {
public:
    pattern_t() = default;
    ~pattern_t() { compile(nullptr); }
    pattern_t(const pattern_t &) = delete;
    pattern_t &operator=(const pattern_t &) = delete;

    // Forgets the expression there was. A bad one, or null, leaves none.
    void compile(const char *text)
    {
        if (valid_)
            regfree(&expression_);
        valid_ = text && regcomp(&expression_, text, REG_EXTENDED | REG_NOSUB) == 0;
    }
    bool valid() const { return valid_; }
    bool matches(const std::string &name) const
    {
        return regexec(&expression_, name.c_str(), 0, nullptr, 0) == 0;
    }

private:
    regex_t expression_;
    bool valid_ = false;
};

}  // namespace

struct dir_list_t {
    std::vector<std::string> names;
    size_t cursor = 0;  // the next name to look at
    pattern_t pattern;
};

// Null at the end with errno 0, which readdir(3) leaves alone then: that tells the end from a failure.
static const dirent *next_entry(DIR *in)
{
    errno = 0;
    return readdir(in);
}

dir_list_t *dir_open(const char *path)
{
    if (!path || strlen(path) >= MAXPATHLEN) {
        errno = path ? ENAMETOOLONG : EINVAL;
        return nullptr;
    }
    const dir_ptr in(opendir(path));
    if (!in)
        return nullptr;
    try {
        auto dir = std::make_unique<dir_list_t>();
        while (const dirent *entry = next_entry(in.get()))
            dir->names.emplace_back(entry->d_name);
        // Half a directory would pass for the whole.
        return errno == 0 && !dir->names.empty() ? dir.release() : nullptr;
    } catch (const std::bad_alloc &) {
        fprintf(stderr, "dir_open:  malloc fail 2\n");
        errno = ENOMEM;
        return nullptr;
    }
}

const char *dir_grep(dir_list_t *dir, const char *pattern)
{
    if (pattern && *pattern)
        dir->pattern.compile(pattern);
    if (!dir->pattern.valid()) {
        errno = EINVAL;
        return nullptr;
    }
    while (dir->cursor < dir->names.size()) {
        const std::string &name = dir->names[dir->cursor++];
        if (dir->pattern.matches(name))
            return name.c_str();
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
    delete dir;
}

}  // namespace faxtray
