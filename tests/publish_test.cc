// Giving a finished file its last name.
#include "disk/publish.h"

#include <fnmatch.h>
#include <gtest/gtest.h>
#include <sys/param.h>
#include <sys/stat.h>

#include <climits>
#include <filesystem>

#include "support/temp_dir.h"

namespace faxtray {

class Publishing : public testing::Test {
protected:
    // `src` as `dst`. The name it got; "" when it failed.
    static std::string publish_as(const std::string &src, const std::string &dst, bool dos_names = false)
    {
        char name[MAXPATHLEN];
        snprintf(name, sizeof name, "%s", dst.c_str());
        const std::string content = read_file(src);
        const bool done = publish(src.c_str(), name, dos_names) == 1;
        EXPECT_EQ(read_file(done ? name : src), content) << "a failure leaves the source alone";
        return done ? name : "";
    }

    // What holds within one file system and from one to another.
    static void expect_names(const temp_dir &from, const temp_dir &to)
    {
        const std::string longest = std::string(NAME_MAX - 4, 'n');
        const struct {
            const char *content;
            std::string name, used;
        } rows[] = {
            {"one", "a.fax", "a.fax"},
            {"two", "a.fax", "a_2.fax"},
            {"three", "a.fax", "a_3.fax"},
            {"two", "a.fax", "a_2.fax"},
            {"one", "a.fax", "a.fax"},
            {"", "plain", "plain"},
            {"x", "plain", "plain_2"},
            {"x", ".hidden", ".hidden"},
            {"y", ".hidden", ".hidden_2"},
            {"x", "directory", "directory_2"},
            {"x", "dangling", "dangling_2"},
            {"x", longest + ".fax", longest + ".fax"},
            {"y", longest + ".fax", longest.substr(2) + "_2.fax"},
        };
        mkdir((to / "directory").c_str(), 0755);
        ASSERT_EQ(symlink("nowhere", (to / "dangling").c_str()), 0);
        for (const auto &row : rows)
            EXPECT_EQ(publish_as(from.write("src", row.content), to / row.name.c_str()),
                      to / row.used.c_str())
                << row.content;
        EXPECT_EQ(names_in(from.path()), "");
        EXPECT_EQ(names_in(to.path()).find("ii_"), std::string::npos);
    }

    temp_dir here, inbox;
};

TEST_F(Publishing, NeverReplacesAnotherFile)
{
    expect_names(here, inbox);
}

TEST_F(Publishing, CrossesFileSystems)
{
    struct stat st_here = {}, st_there = {};
    if (stat(here.path().c_str(), &st_here) != 0 || stat("/dev/shm", &st_there) != 0 ||
        st_here.st_dev == st_there.st_dev)
        GTEST_SKIP() << "/dev/shm is no other file system";
    scoped_env shm("TMPDIR", "/dev/shm");
    temp_dir other;
    expect_names(here, other);
}

TEST_F(Publishing, TakesTheNextShortName)
{
    scoped_env temp("ONDRIXTMP", here.path().c_str());
    const std::string first = inbox / "nov05aaa.tif";
    EXPECT_EQ(publish_as(here.write("src", "one"), first, true), first);
    const std::string next = publish_as(here.write("src", "two"), first, true);
    EXPECT_EQ(fnmatch("*/[a-z][a-z][a-z][0-9][0-9][a-z][a-z][a-z].tif", next.c_str(), 0), 0) << next;
    EXPECT_NE(next, first);
}

TEST_F(Publishing, OntoItselfIsNoLoss)
{
    const std::string path = here.write("x.fax", "a fax"), inside = here / "link/x.fax",
                      second = inbox / "x.fax";
    ASSERT_EQ(symlink(".", (here / "link").c_str()), 0);
    ASSERT_EQ(link(path.c_str(), second.c_str()), 0);
    for (const std::string &name : {path, inside, second})
        EXPECT_EQ(publish_as(path, name), name);
    EXPECT_FALSE(std::filesystem::exists(path)) << "a second name of the same file takes its place";
}

TEST_F(Publishing, FailureLeavesTheSourceAlone)
{
    const std::string src = here.write("src", "a fax");
    for (const std::string &name : {std::string("missing/x.fax"), std::string(NAME_MAX + 1, 'n')})
        EXPECT_EQ(publish_as(src, inbox / name.c_str()), "");
    char dst[MAXPATHLEN];
    snprintf(dst, sizeof dst, "%s", (inbox / "x.fax").c_str());
    EXPECT_EQ(publish(here.path().c_str(), dst, false), 0) << "a directory";
    EXPECT_TRUE(std::filesystem::is_empty(inbox.path()));
}

}  // namespace faxtray
