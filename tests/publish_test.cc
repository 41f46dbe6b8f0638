// Giving a finished file its last name.
#include "util/publish.h"

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
    // Publishes a file of that content from `from` as `name` in `to`. The name it got; "" when it failed.
    static std::string publish_in(const temp_dir &from, const std::string &content, const temp_dir &to,
                                  const std::string &name, bool dos_names = false)
    {
        const std::string src = from.write("src", content);
        char dst[MAXPATHLEN];
        snprintf(dst, sizeof dst, "%s/%s", to.path().c_str(), name.c_str());
        if (!publish(src.c_str(), dst, dos_names)) {
            EXPECT_EQ(read_file(src), content) << "the source stays";
            return "";
        }
        EXPECT_FALSE(std::filesystem::exists(src));
        EXPECT_EQ(read_file(dst), content);
        return std::filesystem::path(dst).filename();
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
            EXPECT_EQ(publish_in(from, row.content, to, row.name), row.used) << row.content << row.name;
        for (const auto &entry : std::filesystem::directory_iterator(to.path()))
            EXPECT_NE(entry.path().filename().string().rfind("ii_", 0), 0U) << entry.path();
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
    stat(here.path().c_str(), &st_here);
    if (stat("/dev/shm", &st_there) != 0 || st_here.st_dev == st_there.st_dev)
        GTEST_SKIP() << "/dev/shm is no other file system";
    scoped_env shm("TMPDIR", "/dev/shm");
    temp_dir other;
    expect_names(here, other);
}

TEST_F(Publishing, TakesTheNextShortName)
{
    scoped_env temp("ONDRIXTMP", here.path().c_str());
    EXPECT_EQ(publish_in(here, "one", inbox, "nov05aaa.tif", true), "nov05aaa.tif");
    const std::string next = publish_in(here, "two", inbox, "nov05aaa.tif", true);
    EXPECT_EQ(fnmatch("[a-z][a-z][a-z][0-9][0-9][a-z][a-z][a-z].tif", next.c_str(), 0), 0) << next;
    EXPECT_NE(next, "nov05aaa.tif");
}

TEST_F(Publishing, OntoItselfIsNoLoss)
{
    const std::string path = here.write("x.fax", "a fax"), inside = here / "link/x.fax";
    ASSERT_EQ(symlink(".", (here / "link").c_str()), 0);
    for (const std::string &name : {path, inside}) {
        char dst[MAXPATHLEN];
        snprintf(dst, sizeof dst, "%s", name.c_str());
        EXPECT_EQ(publish(path.c_str(), dst, false), 1);
        EXPECT_EQ(read_file(path), "a fax");
    }
    char second[MAXPATHLEN];
    snprintf(second, sizeof second, "%s", (inbox / "x.fax").c_str());
    ASSERT_EQ(link(path.c_str(), second), 0);
    EXPECT_EQ(publish(path.c_str(), second, false), 1);
    EXPECT_FALSE(std::filesystem::exists(path)) << "a second name of the same file takes its place";
    EXPECT_EQ(read_file(second), "a fax");
}

TEST_F(Publishing, FailureLeavesTheSourceAlone)
{
    EXPECT_EQ(publish_in(here, "a fax", inbox, "missing/x.fax"), "");
    EXPECT_EQ(publish_in(here, "a fax", inbox, std::string(NAME_MAX + 1, 'n')), "");
    char dst[MAXPATHLEN];
    snprintf(dst, sizeof dst, "%s", (inbox / "x.fax").c_str());
    EXPECT_EQ(publish(here.path().c_str(), dst, false), 0) << "a directory";
    EXPECT_TRUE(std::filesystem::is_empty(inbox.path()));
}

}  // namespace faxtray
