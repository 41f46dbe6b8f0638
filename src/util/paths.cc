// Finding files, and making paths absolute and canonical by their text alone.
#include "util/paths.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "util/access.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

// Finding

// An absolute copy of "dir/name" when `usable` says yes to it, else null.
static char *find_in(std::string_view dir, const char *name, int (*usable)(const char *))
{
    char path[MAXPATHLEN];
    int n = snprintf(path, sizeof path, "%.*s/%s", static_cast<int>(dir.size()), dir.data(), name);
    if (n < 0 || n >= static_cast<int>(sizeof path) || !usable(path))
        return nullptr;
    return fix_path(path);
}

static char *find_at_home(const char *name, int (*usable)(const char *))
{
    const char *home = getenv("ONDRIXHOME");
    char *found = home ? find_in(home, name, usable) : nullptr;
    return found ? found : find_in(".", name, usable);
}

char *find_file(const char *name)
{
    return find_at_home(name, is_readable_file);
}

const char *path_or_found(const char *path, const char *name, c_string *found)
{
    if (path && *path)
        return path;
    found->reset(find_file(name));
    return found->get();
}

char *find_executable(const char *name)
{
    char *found = find_at_home(name, is_executable_file);
    for (const char *path = getenv("PATH"); path && !found;) {
        size_t n = strcspn(path, ":");
        if (n > 0)  // an empty place is the current directory, which has been asked
            found = find_in({path, n}, name, is_executable_file);
        path = path[n] ? path + n + 1 : nullptr;
    }
    return found;
}

// Absolute and canonical paths

static c_string working_dir;  // as it was when first asked

char *cv_getcwd(char *buffer, size_t size)
{
    size_t length = working_dir ? strlen(working_dir.get()) : 0;
    if (working_dir && length < size)
        return static_cast<char *>(memcpy(buffer, working_dir.get(), length + 1));
    if (!getcwd(buffer, size)) {
        fprintf(stderr, "cv_getcwd: getcwd: %s\n", strerror(errno));
        return nullptr;
    }
    working_dir.reset(strdup(buffer));
    if (!working_dir)
        fprintf(stderr, "cv_getcwd: strdup: %s\n", strerror(errno));
    return buffer;
}

// "dir/path" in a new block, or null with errno.
static char *join(const char *dir, std::string_view path)
{
    size_t dir_len = strlen(dir);
    char *joined = static_cast<char *>(malloc(dir_len + 1 + path.size() + 1));
    if (!joined)
        return nullptr;
    memcpy(joined, dir, dir_len);
    joined[dir_len] = '/';
    path.copy(joined + dir_len + 1, path.size());
    joined[dir_len + 1 + path.size()] = '\0';
    return joined;
}

char *fix_path(const char *path)
{
    if (!path)
        return nullptr;
    if (strncmp(path, "./", 2) == 0)
        path += 2;
    else if (strncmp(path, "../", 3) == 0)
        path += 3;

    char dir[MAXPATHLEN + 1] = "";
    bool full = is_full_path(path);
    if (!full && !cv_getcwd(dir, sizeof dir)) {
        trprintf("fix_path: cv_getcwd: %s\n", strerror(errno));
        return nullptr;
    }
    size_t length = strlen(path) + (full ? 0 : strlen(dir) + 1);
    if (length > MAXPATHLEN) {
        trprintf("fix_path: path too large\n");
        return nullptr;
    }
    char *fixed = full ? strdup(path) : join(dir, path);
    if (!fixed)
        trprintf("fix_path: strdup(\"%s\"): %s\n", path, strerror(errno));
    return fixed;
}

// As the C locale has them.
static bool is_control_or_space(char ch)
{
    return static_cast<unsigned char>(ch) <= ' ' || ch == 0x7F;
}

// What is left of `text` without white space and double quotes at both ends.
static std::string_view stripped(std::string_view text)
{
    auto outside = [](char ch) { return is_space(ch) || ch == '"'; };
    while (!text.empty() && outside(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && outside(text.back()))
        text.remove_suffix(1);
    return text;
}

int is_valid_path(const char *path)
{
    if (!path)
        return 0;
    if (strlen(path) > MAXPATHLEN) {
        trprintf("%s: Invalid path (exceeds MAXPATHLEN of %d bytes): [%s].\n", "is_valid_path", MAXPATHLEN,
                 path);
        return 0;
    }
    for (char ch : stripped(path))
        if (is_control_or_space(ch)) {
            trprintf("%s: Invalid path: [%s].\n", "is_valid_path", path);
            return 0;
        }
    return 1;
}

// Rewrites the absolute `path` without empty, "." and ".." components; false when a ".." has nothing
// to remove. What is written never overtakes what is read.
static bool make_canonical(char *path)
{
    char *out = path;
    for (const char *in = path; *in;) {
        in += strspn(in, "/");
        size_t n = strcspn(in, "/");
        std::string_view component(in, n);
        in += n;
        if (component == "..") {
            if (out == path)
                return false;
            while (*--out != '/')
                ;
        } else if (!component.empty() && component != ".") {
            *out++ = '/';
            memmove(out, component.data(), n);
            out += n;
        }
    }
    if (out == path)
        *out++ = '/';
    *out = '\0';
    return true;
}

// `text` as an absolute path in a new block, or null with a trace line.
static char *absolute(std::string_view text)
{
    if (!text.empty() && text.front() == '/') {
        char *copy = strndup(text.data(), text.size());
        if (!copy)
            trprintf("mkpath: strdup: %s.\n", strerror(errno));
        return copy;
    }
    char dir[MAXPATHLEN + 1];
    if (!cv_getcwd(dir, sizeof dir)) {
        trprintf("mkpath: cv_getcwd: %s.\n", strerror(errno));
        return nullptr;
    }
    char *joined = join(dir, text);
    if (!joined)
        trprintf("mkpath: malloc: %s.\n", strerror(errno));
    return joined;
}

char *mkpath(const char *path)
{
    if (!is_valid_path(path)) {
        trprintf("%s: Invalid path: [%s].\n", "mkpath", path ? path : "(null)");
        return nullptr;
    }
    c_string full(absolute(stripped(path)));
    if (!full)
        return nullptr;
    if (!make_canonical(full.get()) || strlen(full.get()) > MAXPATHLEN) {
        trprintf("mkpath: Invalid path: [%s].\n", path);
        return nullptr;
    }
    return full.release();
}

bool is_canonical_path(const char *path)
{
    if (path[0] != '/')
        return false;
    const char *slash = path;  // the last one seen: a component lies between it and the next
    for (const char *p = path + 1;; p++) {
        if (*p && *p != '/') {
            if (is_control_or_space(*p))
                return false;
            continue;
        }
        std::string_view component(slash + 1, static_cast<size_t>(p - slash - 1));
        if (component.empty() || component == "." || component == "..")
            return p == path + 1 && !*p;  // of these only "/" itself
        if (!*p)
            return p[-1] != '"' && p - path <= MAXPATHLEN;
        slash = p;
    }
}

int is_full_path(const char *path)
{
    return path && path[0] == '/';
}

int is_relative_path(const char *path)
{
    return !is_full_path(path);
}

// Components

static char *current_dir_name()
{
    static char dot[2];
    dot[0] = '.';
    return dot;
}

const char *last_component(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

char *basename(char *path)
{
    if (!path || !*path)
        return current_dir_name();
    for (size_t n = strlen(path); n > 1 && path[n - 1] == '/'; n--)
        path[n - 1] = '\0';
    char *slash = strrchr(path, '/');
    return slash && slash[1] ? slash + 1 : path;
}

char *dirname(char *path)
{
    size_t n = path ? strlen(path) : 0;
    if (n == 0)
        return current_dir_name();
    if (n > 1 && path[n - 1] == '/')
        n--;
    while (n > 0 && path[n - 1] != '/')
        n--;
    if (n == 0)
        return current_dir_name();
    path[n > 1 ? n - 1 : 1] = '\0';
    return path;
}

const char *get_temp_dir()
{
    static char dir[MAXPATHLEN];
    const char *set = getenv("ONDRIXTMP");
    int n = snprintf(dir, sizeof dir, "%s", set ? set : "/tmp");
    if (n < 0 || n >= static_cast<int>(sizeof dir)) {
        trprintf("get_temp_dir: path too large\n");
        snprintf(dir, sizeof dir, "/tmp");
    }
    return dir;
}

}  // namespace faxtray
