// whole_file: a file that a command writes: whole under its name, or not there at all.
#pragma once

#include <string>

#include "util/owned.h"

namespace faxtray {

class whole_file {
public:
    // OUTPUT is what the user asked for: failures are reported, on standard error under the command's name. A
    // CACHE is the command's own: nothing is reported, and nobody else may read it.
    enum kind_t { OUTPUT, CACHE };
    explicit whole_file(kind_t kind = OUTPUT) : kind_(kind) {}
    ~whole_file();  // removes what was not kept
    whole_file(const whole_file &) = delete;
    whole_file &operator=(const whole_file &) = delete;

    // Each returns true, or false when it failed.

    // Creates a temporary file beside `target`; "-" is standard output. Refuses a target that exists, unless
    // `replace` is set and it is a regular file. The temporary file is also removed when a signal ends the
    // program, SIGKILL excepted; one such file at a time.
    bool begin(const std::string &target, bool replace);
    // Appends `n` bytes. After a failure the file can only be given up.
    bool write(const char *bytes, size_t n);
    // For writers that take a descriptor: the file's own. A temporary file is empty, and open for reading
    // too.
    int fd() const { return fd_.get(); }
    // Puts the file on the disk under the target's name, with mode 0666 less the umask or, for a cache, 0600:
    // a crash afterwards loses nothing. Call it once, last.
    bool keep();

private:
    bool complain(const char *what) const;

    kind_t kind_;
    std::string target_, temporary_;
    bool replace_ = false;
    unique_fd fd_;
};

// Whether a command may write a file of that name: nothing is there or, with `replace`, a regular file. False
// with the reason on standard error.
bool may_become_output(const std::string &target, bool replace);

}  // namespace faxtray
