// Lines "NAME = VALUE"; what begins with "#" is a comment. One line that makes no sense refuses the file: a
// password sent to the wrong host is worse than a command that does not run. CLI11 could read such files, but
// passes over one that it cannot read, names no line, and lets the file outdo the environment.
#include "client/client_config.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "disk/user_directory.h"
#include "util/command_output.h"
#include "util/io.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/text.h"

namespace faxtray {

static constexpr off_t max_file = 64 * 1024;  // bytes

// Why the open file is not to be trusted or read, or "". Whoever can write it can have the password sent to
// a host of his own.
static std::string refusal(int fd)
{
    struct stat status;
    if (fstat(fd, &status) != 0)
        return strerror(errno);
    if (!S_ISREG(status.st_mode))
        return "not a regular file";
    if (status.st_uid != geteuid() && status.st_uid != 0)
        return "it belongs to another user";
    if (status.st_mode & (S_IWGRP | S_IWOTH))
        return "others may write to it: chmod go-w makes it yours alone";
    return status.st_size > max_file ? "too large" : "";
}

// The whole file; "" if it is missing. A reason not to read it goes to `problem`.
static std::string text_of(const std::string &path, std::string *problem)
{
    const unique_fd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        *problem = errno == ENOENT || errno == ENOTDIR ? "" : strerror(errno);
        return "";
    }
    *problem = refusal(fd.get());
    std::string text(max_file, '\0');
    const ssize_t n = problem->empty() ? read_full(fd.get(), text.data(), text.size()) : 0;
    if (n < 0)
        *problem = strerror(errno);
    text.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return text;
}

// A path as the file names it: in the home directory after "~/", else relative to the file's own directory.
static std::string path_named(const std::string &value, const std::string &file)
{
    const char *home = getenv("HOME");
    if (value.starts_with("~/") && home)
        return home + value.substr(1);
    return is_full_path(value.c_str()) ? value : file.substr(0, file.rfind('/') + 1) + value;
}

// Takes one line that is no comment. Returns what is wrong with it, or "".
static std::string take_line(std::string_view line, const std::string &file, options *chosen)
{
    const size_t equals = line.find('=');
    const std::string name(stripped(line.substr(0, equals)));
    const std::string value(equals == line.npos ? "" : stripped(line.substr(equals + 1)));
    std::string *const taken = name == "host"            ? &chosen->host
                               : name == "user"          ? &chosen->user
                               : name == "password-file" ? &chosen->password_file
                                                         : nullptr;
    if (!taken)
        return "unknown name [" + printable(name) + "]: host, user and password-file are known";
    if (value.empty())
        return "no value for " + name + ": a line is NAME = VALUE";
    *taken = taken == &chosen->password_file ? path_named(value, file) : value;
    return "";
}

std::string read_client_config(options *chosen)
{
    const std::string base = user_directory("XDG_CONFIG_HOME", ".config");
    if (base.empty())
        return "";
    const std::string path = base + "/faxtray/config";
    std::string problem;
    std::istringstream lines(text_of(path, &problem));
    if (!problem.empty())
        return printable(path) + ": " + problem;
    std::string line;
    for (int number = 1; std::getline(lines, line); number++) {
        const std::string_view text = stripped(line);
        if (text.empty() || text.front() == '#')
            continue;
        problem = take_line(text, path, chosen);
        if (!problem.empty())
            return printable(path) + ":" + std::to_string(number) + ": " + problem;
    }
    return "";
}

}  // namespace faxtray
