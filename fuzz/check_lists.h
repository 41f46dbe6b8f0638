// Two lists of any bytes, the same for users and fax lines: what the checker says of them is about lines that
// there are.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "check.h"
#include "check/effective.h"
#include "check/lists_check.h"
#include "util/io.h"
#include "util/owned.h"

namespace faxtray {

// A file of those bytes, removed at the end.
class list_file {
public:
    list_file(const uint8_t *bytes, size_t n)
    {
        const unique_fd fd(mkstemp(path_));
        check(static_cast<bool>(fd) && write_full(fd.get(), bytes, n));
    }
    ~list_file() { unlink(path_); }
    list_file(const list_file &) = delete;
    list_file &operator=(const list_file &) = delete;
    const char *path() const { return path_; }

private:
    char path_[32] = "/tmp/fuzz_list.XXXXXX";
};

inline void fuzz_check_lists(const uint8_t *bytes, size_t n)
{
    if (n > 65536)
        return;
    const list_file file(bytes, n);
    problems_t problems;
    seen_users_t users;
    seen_modems_t modems;
    see_users(file.path(), problems, &users);
    see_modems(file.path(), problems, &modems);
    check(users.is_read && modems.is_read);
    check_lists(users, modems, false, problems);
    const long lines = std::count(bytes, bytes + n, '\n') + 1;
    for (const problem_t &problem : problems.sorted())
        check(problem.place.line >= 0 && problem.place.line <= lines);
    show_settings(users, "", false, true);
}

}  // namespace faxtray
