// temp_dir: a directory of a test's own, gone with all it holds when the test ends.
#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace faxtray {

class temp_dir {
public:
    temp_dir();
    ~temp_dir();
    temp_dir(const temp_dir &) = delete;
    temp_dir &operator=(const temp_dir &) = delete;

    const std::string &path() const { return path_; }
    std::string operator/(const char *name) const { return path_ + "/" + name; }
    // Makes a file of that content and returns its path.
    std::string write(const std::string &name, const std::string &content) const;

private:
    std::string path_;
};

// These give up the test program when the file is not there: a scene that cannot be set proves nothing.
std::string read_file(const std::string &path);
std::string names_in(const std::string &directory);  // sorted, with a blank between
void set_mtime(const std::string &path, time_t mtime);

// An environment variable set (or, with null, unset) for as long as this lives.
class scoped_env {
public:
    scoped_env(const char *name, const char *value);
    ~scoped_env();
    scoped_env(const scoped_env &) = delete;
    scoped_env &operator=(const scoped_env &) = delete;

private:
    std::string name_;
    std::optional<std::string> old_;
};

}  // namespace faxtray
