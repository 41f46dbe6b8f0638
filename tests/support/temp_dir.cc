#include "support/temp_dir.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

namespace faxtray {

static void require(bool good, const std::string &what)
{
    if (good)
        return;
    perror(what.c_str());
    abort();
}

temp_dir::temp_dir()
{
    std::string path = std::filesystem::temp_directory_path() / "faxtray_test_XXXXXX";
    require(mkdtemp(path.data()) != nullptr, path);
    path_ = path;
}

temp_dir::~temp_dir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string temp_dir::write(const std::string &name, const std::string &content) const
{
    std::string path = path_ + "/" + name;
    std::ofstream out(path, std::ios::binary);
    out << content;
    out.close();
    require(out.good(), path);
    return path;
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    require(in.good(), path);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string names_in(const std::string &directory)
{
    std::set<std::string> sorted;
    for (const auto &entry : std::filesystem::directory_iterator(directory))
        sorted.insert(entry.path().filename());
    std::string all;
    for (const auto &name : sorted)
        all += (all.empty() ? "" : " ") + name;
    return all;
}

void set_mtime(const std::string &path, time_t mtime)
{
    const timespec times[2] = {{mtime, 0}, {mtime, 0}};
    require(utimensat(AT_FDCWD, path.c_str(), times, 0) == 0, path);
}

static void set_env(const std::string &name, const char *value)
{
    require((value ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str())) == 0, name);
}

scoped_env::scoped_env(const char *name, const char *value) : name_(name)
{
    if (const char *old = getenv(name))
        old_ = old;
    set_env(name_, value);
}

scoped_env::~scoped_env()
{
    set_env(name_, old_ ? old_->c_str() : nullptr);
}

}  // namespace faxtray
