// whole_file: a file that a command writes: whole under its name, or not there at all. It reports its
// failures itself, on standard error under the command's name.
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

    // Each returns true, or false with a message on standard error.

    // Creates a temporary file beside `target`; "-" is standard output. Refuses a target that exists, unless
    // `replace` is set and it is a regular file. The temporary file is also removed when SIGINT, SIGTERM,
    // SIGHUP or SIGQUIT ends the program, from here on; one such file at a time.
    bool begin(const std::string &target, bool replace);
    // Appends `n` bytes. After a failure the file can only be given up.
    bool write(const char *bytes, size_t n);
    // Puts the file on the disk under the target's name, with mode 0666 less the umask: a crash afterwards
    // loses nothing. Call it once, last.
    bool keep();

private:
    bool complain(const char *what) const;

    std::string target_, temporary_;
    bool replace_ = false;
    unique_fd fd_;
};

}  // namespace faxtray
