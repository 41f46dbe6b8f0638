// whole_file: a file being written by a command: whole under its name, or not there at all.
#pragma once

#include <string>

#include "util/owned.h"

namespace faxtray {

class whole_file {
public:
    whole_file() = default;
    ~whole_file();  // removes what was not kept
    whole_file(const whole_file &) = delete;
    whole_file &operator=(const whole_file &) = delete;

    // Each gives true, or false with a message on standard error.

    // Begins a temporary file beside `target`, which also goes when a signal ends the program; "-" is
    // standard output. Refuses a target that exists, unless `replace` and it is a regular file.
    bool begin(const std::string &target, bool replace);
    bool write(const char *bytes, size_t n);
    // Puts all on disk, under the target's name, so that a crash afterwards loses nothing.
    bool keep();

private:
    bool complain(const char *what) const;

    std::string target_, temporary_;
    bool replace_ = false;
    unique_fd fd_;
};

}  // namespace faxtray
