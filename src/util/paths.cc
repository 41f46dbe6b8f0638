// Paths are judged and rewritten as text: asking the system would cost a call a component, follow links, and
// fail for what does not exist yet.
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

// The absolute path of "dir/name" when `usable` accepts it, else null.
static c_string find_in(std::string_view dir, const char *name, int (*usable)(const char *))
{
    char path[MAXPATHLEN];
    int n = snprintf(path, sizeof path, "%.*s/%s", static_cast<int>(dir.size()), dir.data(), name);
    if (n < 0 || n >= static_cast<int>(sizeof path) || !usable(path))
        return nullptr;
    return fix_path(path);
}

static c_string find_at_home(const char *name, int (*usable)(const char *))
{
    if (const char *home = getenv("ONDRIXHOME"))
        if (c_string found = find_in(home, name, usable))
            return found;
    return find_in(".", name, usable);
}

c_string find_file(const char *name)
{
    return find_at_home(name, is_readable_file);
}

const char *path_or_found(const char *path, const char *name, c_string *found)
{
    if (path && *path)
        return path;
    *found = find_file(name);
    return found->get();
}

c_string find_executable(const char *name)
{
    c_string found = find_at_home(name, is_executable_file);
    for (const char *path = getenv("PATH"); path && !found;) {
        size_t n = strcspn(path, ":");
        if (n > 0)  // an empty one means the current directory, which was tried already
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
    if (!working_dir)  // the answer is right all the same; the next call asks the system again
        fprintf(stderr, "cv_getcwd: strdup: %s\n", strerror(errno));
    return buffer;
}

// "dir/path", or null with errno.
static c_string join(const char *dir, std::string_view path)
{
    char *joined = nullptr;
    if (asprintf(&joined, "%s/%.*s", dir, static_cast<int>(path.size()), path.data()) < 0)
        return nullptr;
    return c_string(joined);
}

c_string fix_path(const char *path)
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
    // Looked at before anything is allocated: the path may be any text that a file or a client gave us.
    size_t length = strlen(path) + (full ? 0 : strlen(dir) + 1);
    if (length > MAXPATHLEN) {
        trprintf("fix_path: path too large\n");
        return nullptr;
    }
    c_string fixed = full ? c_string(strdup(path)) : join(dir, path);
    if (!fixed)
        trprintf("fix_path: strdup(\"%s\"): %s\n", path, strerror(errno));
    return fixed;
}

// As the C locale has them.
static bool is_control_or_space(char ch)
{
    return static_cast<unsigned char>(ch) <= ' ' || ch == 0x7F;
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

// Rewrites the absolute `path` in place without empty, "." and ".." components; false when there is nothing
// for a
// ".." to remove. Each component is written with one "/" and was read with at least one, so what is written
// never overtakes what is read.
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
            // Back to the "/" before the component written last.
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

// `text` with the current directory prefixed unless it is absolute; null with a trace line.
static c_string absolute(std::string_view text)
{
    if (!text.empty() && text.front() == '/') {
        c_string copy(strndup(text.data(), text.size()));
        if (!copy)
            trprintf("mkpath: strdup: %s.\n", strerror(errno));
        return copy;
    }
    char dir[MAXPATHLEN + 1];
    if (!cv_getcwd(dir, sizeof dir)) {
        trprintf("mkpath: cv_getcwd: %s.\n", strerror(errno));
        return nullptr;
    }
    c_string joined = join(dir, text);
    if (!joined)
        trprintf("mkpath: malloc: %s.\n", strerror(errno));
    return joined;
}

c_string mkpath(const char *path)
{
    if (!is_valid_path(path)) {
        trprintf("%s: Invalid path: [%s].\n", "mkpath", shown(path));
        return nullptr;
    }
    c_string full = absolute(stripped(path));
    if (!full)
        return nullptr;
    // Checked again: a relative path may have become too long.
    if (!make_canonical(full.get()) || strlen(full.get()) > MAXPATHLEN) {
        trprintf("mkpath: Invalid path: [%s].\n", path);
        return nullptr;
    }
    return full;
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

// "." in a buffer that the caller may write to, as to any other result. Filled in at every call, in case the
// last caller did.
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
    // `n` becomes the length up to and including the "/" at which the path is cut.
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

std::string temporary_directory()
{
    const char *set = getenv("TMPDIR");
    return is_empty(set) ? "/tmp" : set;
}

}  // namespace faxtray
