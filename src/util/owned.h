// owned: owners of what C functions allocate and open, so that every path out of a function frees it.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace faxtray {

// The deleter of a unique_ptr whose pointee is freed by the function `Free`.
template <auto Free> struct deleter {
    template <class T> void operator()(T *p) const noexcept { Free(p); }
};

using c_string = std::unique_ptr<char, deleter<std::free>>;  // malloc'd text
using file_ptr = std::unique_ptr<FILE, deleter<std::fclose>>;
using dir_ptr = std::unique_ptr<DIR, deleter<closedir>>;

// A descriptor, closed when its owner goes out of scope. Closing what was written may report an error that
// the owner would not see: take the descriptor by release() and look at close()'s result.
class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) noexcept : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~unique_fd() { reset(); }

    int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    int release() noexcept { return std::exchange(fd_, -1); }
    void reset(int fd = -1) noexcept
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

}  // namespace faxtray
