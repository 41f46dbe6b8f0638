// Copying, moving, naming and listing files.
#include "util/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/param.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <string>

#include "support/capture.h"
#include "util/dir_list.h"
#include "util/file_names.h"
#include "util/owned.h"

namespace faxtray {

static const std::string content(20000, '\xA5');

// Each test runs in a directory of its own, which is the current one.
class Files : public testing::Test {
protected:
    Files() { std::filesystem::current_path(dir.path()); }
    ~Files() override { std::filesystem::current_path(old_); }
    temp_dir dir;

private:
    const std::filesystem::path old_ = std::filesystem::current_path();
};

static mode_t mode_of(const char *path)
{
    struct stat st = {};
    stat(path, &st);  // without the file: 0
    return st.st_mode & 07777;
}

TEST_F(Files, CopyingKeepsContentAndPermissions)
{
    dir.write("a.fax", content);
    chmod("a.fax", 0664);
    mode_t mask = umask(027);
    ASSERT_EQ(copy("a.fax", "b.fax"), 1);
    EXPECT_EQ(mode_of("b.fax"), 0640U) << "a new target: less the umask";
    dir.write("b.fax", content + content);
    ASSERT_EQ(copy("a.fax", "b.fax"), 1);
    EXPECT_EQ(mode_of("b.fax"), 0664U) << "an existing target: the source's own";
    EXPECT_EQ(read_file("b.fax"), content);
    umask(mask);
    mkdir("inbox", 0755);
    ASSERT_EQ(copy("a.fax", "inbox"), 1);
    EXPECT_EQ(read_file("inbox/a.fax"), content);
}

TEST_F(Files, CopyingRefusesWhatWouldLoseAFile)
{
    dir.write("a", content);
    mkfifo("fifo", 0600);
    link("a", "same");
    trace_on trace;
    for (auto [source, target] :
         {std::pair("none", "b"), {"fifo", "b"}, {"a", "same"}, {"a", "."}, {"a", "fifo"}})
        EXPECT_EQ(copy(source, target), 0) << source << " " << target;
    EXPECT_EQ(copy("a", "no/b"), 0);
    EXPECT_EQ(read_file("a"), content);
    EXPECT_NE(mode_of("fifo"), 0U);
    EXPECT_EQ(mode_of("b"), 0U);
    EXPECT_EQ(trace.text(), "copy: open(\"none\") failed: No such file or directory.\n"
                            "copy: \"fifo\" isn't a regular file.\n"
                            "copy: open(\"same\") failed: File exists.\n"
                            "copy: open(\"./a\") failed: File exists.\n"
                            "copy: \"fifo\" isn't a regular file.\n"
                            "copy: open(\"no/b\") failed: No such file or directory.\n");
}

// What `act` gives while no file may grow past two blocks, as on a disk that fills up.
static int on_a_small_disk(int (*act)(const char *, const char *), const char *src, const char *dst)
{
    struct rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    const struct rlimit small = {16384, old.rlim_max};
    auto handler = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    int result = act(src, dst);
    setrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, handler);
    return result;
}

TEST_F(Files, AHalfMadeCopyIsRemoved)
{
    dir.write("a", content);
    trace_on trace;
    EXPECT_EQ(on_a_small_disk(copy, "a", "b"), 0);
    EXPECT_EQ(mode_of("b"), 0U);
    EXPECT_EQ(trace.text(), "copy: write(\"b\") failed: File too large.\n");
}

TEST_F(Files, MovingRenamesAndNeverLosesTheFile)
{
    dir.write("a", content);
    mkdir("inbox", 0755);
    ASSERT_EQ(cv_move("a", "b"), 1);
    ASSERT_EQ(cv_move("b", "inbox"), 1);
    EXPECT_EQ(mode_of("b"), 0U);
    EXPECT_EQ(cv_move("inbox/b", "inbox"), 0) << "onto itself";
    EXPECT_EQ(cv_move("inbox", "c"), 0) << "a directory";
    EXPECT_EQ(read_file("inbox/b"), content);
}

TEST_F(Files, MovingCrossesFileSystems)
{
    struct stat here = {}, there = {};
    if (stat(".", &here) != 0 || stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev)
        GTEST_SKIP() << "/dev/shm is no other file system";
    scoped_env shm("TMPDIR", "/dev/shm");
    temp_dir other;
    const std::string target = other / "b";
    dir.write("a", content);
    chmod("a", 0600);
    EXPECT_EQ(on_a_small_disk(cv_move, "a", target.c_str()), 0);
    EXPECT_EQ(read_file("a"), content);
    EXPECT_EQ(mode_of(target.c_str()), 0U);
    ASSERT_EQ(cv_move("a", target.c_str()), 1);
    EXPECT_EQ(mode_of("a"), 0U);
    EXPECT_EQ(read_file(target), content);
    EXPECT_EQ(mode_of(target.c_str()), 0600U);
}

TEST_F(Files, UniqueNamesGoOnAcrossCalls)
{
    temp_dir temp;
    scoped_env set("ONDRIXTMP", temp.path().c_str());
    auto next = [](const char *ext) {
        char path[MAXPATHLEN] = "./some_fax";
        return std::string(build_unique_DOS_name(path, ext)).substr(2);
    };
    const std::string stem = next(nullptr).substr(0, 5);
    EXPECT_EQ(next(".tif"), stem + "aab.tif");
    EXPECT_EQ(read_file(temp / "i_d_order"), "2\n");
    dir.write(stem + "aac.fax", "taken");
    EXPECT_EQ(next(nullptr), stem + "aad.fax");
    temp.write("i_d_order", "17572");
    EXPECT_EQ(next(nullptr), stem + "zzw.fax");
    for (const char *bad : {"17573", "-1", "x", ""}) {
        temp.write("i_d_order", bad);
        EXPECT_EQ(next(nullptr), stem + "aaa.fax") << bad;
    }
}

TEST_F(Files, ListedByPattern)
{
    for (int i = 1000; i < 1250; i++)
        dir.write(std::to_string(i) + (i % 2 ? ".fax" : ".tif"), "");
    std::unique_ptr<dir_list_t, deleter<dir_close>> list(dir_open("."));
    ASSERT_TRUE(list);
    auto names = [&list](const char *pattern) {
        std::set<std::string> found;
        for (const char *name = dir_grep(list.get(), pattern); name; name = dir_grep(list.get(), nullptr))
            EXPECT_TRUE(found.insert(name).second) << name;
        return found;
    };
    EXPECT_TRUE(names("").empty()) << "no pattern yet";
    EXPECT_EQ(names("^1").size(), 250U);
    EXPECT_TRUE(names("^1").empty()) << "the cursor stays at the end";
    dir_rewind(list.get());
    EXPECT_EQ(names("^10+1?[01]\\.(fax|tif)$"),
              (std::set<std::string>{"1000.tif", "1001.fax", "1010.tif", "1011.fax"}));
    dir_rewind(list.get());
    EXPECT_TRUE(names("(").empty());
    EXPECT_EQ(dir_open("none"), nullptr);
}

}  // namespace faxtray
