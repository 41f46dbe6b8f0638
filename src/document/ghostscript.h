// ghostscript: runs `gs` on a document from a stranger.
#pragma once

#include <string>
#include <vector>

#include "document/page_source.h"
#include "util/ending_signals.h"

namespace faxtray {

inline constexpr char scratch_prefix[] = ".faxtray-import-";

// A directory for the files of one run, for us alone, gone with all it holds when its owner goes out of
// scope. Its name begins with scratch_prefix.
class scratch_directory {
public:
    scratch_directory() = default;
    ~scratch_directory();
    scratch_directory(scratch_directory &&other) noexcept : path_(std::move(other.path_))
    {
        other.path_.clear();
    }
    scratch_directory &operator=(scratch_directory &&) = delete;

    bool make_in(const std::string &parent);  // false with errno
    const std::string &path() const { return path_; }

private:
    std::string path_;  // "" for none
};

// Runs gs with `arguments` in `directory`, which holds what it reads and gets what it writes. It runs with
// -dSAFER and without a terminal; it gets 2 GB of memory, may write 4 GB, and is ended after `seconds` or
// once one of `signals` came, and when this process dies. False with the reason in `why`: what it said last.
bool run_ghostscript(const std::string &directory, const std::vector<std::string> &arguments,
                     unsigned seconds, const ending_signals_held &signals, reason_t *why);

// What the last run in `directory` complained of. gs may succeed and have made nothing: then it says here
// why.
std::string ghostscript_complaint(const std::string &directory);

}  // namespace faxtray
