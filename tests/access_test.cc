#include "util/access.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <tuple>

#include "support/capture.h"

namespace faxtray {

static constexpr gid_t another_of_mine = 12345;

// Sets the effective user and group, for the tests of what the superuser may anyway.
static void become(uid_t user, gid_t group)
{
    const gid_t groups[] = {1, another_of_mine};
    if (getuid() == 0 &&
        (seteuid(0) != 0 || setgroups(2, groups) != 0 || setegid(group) != 0 || seteuid(user) != 0))
        abort();
}

TEST(Access, TheBitsOfOneClassDecide)
{
    become(65534, 65534);
    const uid_t me = geteuid(), other = me + 1;
    const gid_t mine = getegid(), foreign = 54321;
    const std::tuple<mode_t, uid_t, gid_t, const char *, int> rows[] = {
        {S_IFREG | 0640, me, mine, "rw", 1},
        {S_IFREG | 0640, me, mine, "x", 0},
        {S_IFREG | 0640, other, mine, "r", 1},
        {S_IFREG | 0640, other, mine, "rw", 0},
        {S_IFREG | 0640, other, foreign, "r", 0},
        {S_IFREG | 0647, other, foreign, "rwx", 1},
        {S_IFREG | 0077, me, mine, "r", 0},
        {S_IFREG | 0707, other, mine, "r", 0},
        {S_IFDIR | 0777, me, mine, "r", 0},
        {S_IFREG | 0040, other, another_of_mine, "r", getuid() == 0},
        {S_IFREG | 0400, me, mine, "rq", 1},
    };
    for (const auto &[mode, uid, gid, perms, granted] : rows) {
        struct stat st = {};
        std::tie(st.st_mode, st.st_uid, st.st_gid) = std::tuple(mode, uid, gid);
        EXPECT_EQ(check_access_stat(st, S_IFREG, perms), granted)
            << std::oct << mode << " " << uid << " " << gid << " " << perms;
    }
    temp_dir dir;
    const std::string file = dir.write("file", "");
    for (auto [mode, granted] : {std::pair(0500, 3), {0400, 2}, {0100, 0}}) {
        chmod(file.c_str(), static_cast<mode_t>(mode));
        EXPECT_EQ(is_readable_file(file.c_str()) * 2 + is_executable_file(file.c_str()), granted) << mode;
    }
    become(0, 0);
}

TEST(Access, TheSuperuserPassesAnyFileOfTheType)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "not the superuser";
    struct stat st = {};
    st.st_mode = S_IFREG;
    EXPECT_EQ(check_access_stat(st, S_IFREG, "rwx"), 1);
    EXPECT_EQ(check_access_stat(st, S_IFDIR, "r"), 0);
    trace_on trace;
    EXPECT_EQ(is_readable_file("/nonexistent"), 0);
    EXPECT_EQ(is_readable_file("/dev/null/x"), 0);
    EXPECT_EQ(trace.text(), "check_access: stat(\"/dev/null/x\"): Not a directory\n");
}

}  // namespace faxtray
