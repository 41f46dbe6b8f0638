// staged_files: several files that a command writes, such as the pages of a fax. They get their names when
// all of them are whole; a failure before that leaves nothing, and what they were to replace as it was.
#pragma once

#include <string>
#include <vector>

#include "util/ending_signals.h"
#include "util/owned.h"

namespace faxtray {

class staged_files {
public:
    staged_files() = default;
    ~staged_files();  // removes what was not kept
    staged_files(const staged_files &) = delete;
    staged_files &operator=(const staged_files &) = delete;

    // Failures are reported on standard error under the command's name.

    // Makes a directory ".faxtray-XXXXXX" in `directory` ("": the working one), in which the files wait.
    // `replace`: files of their names are replaced, else refused.
    bool begin(const std::string &directory, bool replace);
    // A new file, open for reading and writing. None if it failed.
    unique_fd add(const std::string &name);
    // Puts all files on the disk under their names. What fails on the way leaves none of them, except those
    // that have replaced others. Call it once, last.
    bool keep();
    // The signals that end a program are held back while this exists: whether one came, so that the caller
    // stops in time.
    bool interrupted() const noexcept { return signals_.one_came(); }

private:
    std::string staged(const std::string &name) const;
    bool name_all();

    const ending_signals_held signals_;
    std::string directory_, staging_;  // paths, with "/" at their ends
    unique_fd staging_fd_;
    bool replace_ = false;
    std::vector<std::string> names_;
};

}  // namespace faxtray
