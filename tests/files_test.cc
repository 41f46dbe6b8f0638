// Copying, moving, naming and listing files.
#include "disk/files.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/param.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "disk/dir_list.h"
#include "disk/file_names.h"
#include "support/capture.h"
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
    dir.write("a", content);
    chmod("a", 0664);
    mode_t mask = umask(027);
    EXPECT_EQ(copy("a", "b"), 1);
    EXPECT_EQ(mode_of("b"), 0640U) << "a new target: less the umask";
    dir.write("b", content + content);
    EXPECT_EQ(copy("a", "b"), 1);
    EXPECT_EQ(mode_of("b"), 0664U) << "an existing target: the source's own";
    EXPECT_EQ(read_file("b"), content);
    umask(mask);
}

TEST_F(Files, CopyingRefusesWhatWouldLoseAFile)
{
    dir.write("a", content);
    mkfifo("fifo", 0600);
    link("a", "same");
    for (auto [source, target] :
         {std::pair("none", "b"), {"fifo", "b"}, {"a", "same"}, {"a", "."}, {"a", "fifo"}})
        EXPECT_EQ(copy(source, target), 0) << source << " " << target;
    EXPECT_EQ(read_file("a"), content);
    EXPECT_EQ(mode_of("b"), 0U);
}

// What `act` gives while no file may grow past two blocks, as on a disk that fills up.
static int on_a_small_disk(int (*act)(const char *, const char *), const char *src, const char *dst)
{
    struct rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    const struct rlimit small = {16384, old.rlim_max};
    auto handler = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    const int result = act(src, dst);
    setrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, handler);
    return result;
}

TEST_F(Files, MovingRenamesAndNeverLosesTheFile)
{
    dir.write("a", content);
    mkdir("inbox", 0755);
    EXPECT_EQ(cv_move("a", "inbox"), 1);
    EXPECT_EQ(mode_of("a"), 0U);
    EXPECT_EQ(cv_move("inbox/a", "inbox"), 0) << "onto itself";
    EXPECT_EQ(on_a_small_disk(copy, "inbox/a", "b"), 0);
    EXPECT_EQ(mode_of("b"), 0U) << "a half made copy is removed";
    EXPECT_EQ(read_file("inbox/a"), content);
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
    EXPECT_EQ(on_a_small_disk(cv_move, "a", target.c_str()), 0);
    EXPECT_EQ(read_file("a"), content);
    EXPECT_EQ(mode_of(target.c_str()), 0U);
    EXPECT_EQ(cv_move("a", target.c_str()), 1);
    EXPECT_EQ(mode_of("a"), 0U);
    EXPECT_EQ(read_file(target), content);
}

TEST_F(Files, UniqueNamesGoOnAcrossCalls)
{
    temp_dir temp;
    scoped_env set("ONDRIXTMP", temp.path().c_str());
    char path[MAXPATHLEN] = "some_fax";
    auto next = [&path] { return std::string(build_unique_DOS_name(path, nullptr)); };
    const std::string stem = next().substr(0, 5);
    dir.write(stem + "aab.fax", "taken");
    EXPECT_EQ(next(), stem + "aac.fax");
    for (auto [order, name] :
         {std::pair("17572", "zzw.fax"), {"17573", "aaa.fax"}, {"-1", "aaa.fax"}, {"", "aaa.fax"}}) {
        temp.write("i_d_order", order);
        EXPECT_EQ(next(), stem + name) << order;
    }
}

TEST_F(Files, ListedByPattern)
{
    for (int i = 1000; i < 1250; i++)
        dir.write(std::to_string(i) + ".fax", "");
    std::unique_ptr<dir_list_t, deleter<dir_close>> list(dir_open("."));
    int found = 0;
    for (const char *name = dir_grep(list.get(), "^10+1?[01]\\.(fax|tif)$"); name; found++)
        name = dir_grep(list.get(), nullptr);
    EXPECT_EQ(found, 4);
}

}  // namespace faxtray
