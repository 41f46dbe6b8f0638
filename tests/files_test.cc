// Copying, moving, naming and listing files.
#include "util/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/param.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/capture.h"
#include "util/dir_list.h"
#include "util/file_names.h"
#include "util/owned.h"

namespace faxtray {

static const std::string content(20000, '\xA5');

static bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

static mode_t mode_of(const std::string &path)
{
    struct stat st = {};
    stat(path.c_str(), &st);
    return st.st_mode & 07777;
}

// `text` with the directory's path as ".".
static std::string without(const temp_dir &dir, const std::string &text)
{
    std::string shown;
    size_t from = 0;
    for (size_t at; (at = text.find(dir.path(), from)) != std::string::npos; from = at + dir.path().size())
        shown.append(text, from, at - from).append(".");
    return shown.append(text, from);
}

TEST(Files, CopyingKeepsContentAndPermissions)
{
    temp_dir dir;
    const std::string source = dir.write("a.fax", content), target = dir / "b.fax";
    chmod(source.c_str(), 0664);
    mode_t mask = umask(027);
    ASSERT_EQ(copy(source.c_str(), target.c_str()), 1);
    EXPECT_EQ(mode_of(target), 0640U) << "a new target: less the umask";
    dir.write("b.fax", content + content);
    ASSERT_EQ(copy(source.c_str(), target.c_str()), 1);
    umask(mask);
    EXPECT_EQ(mode_of(target), 0664U) << "an existing target: the source's own";
    EXPECT_EQ(read_file(target), content);

    mkdir((dir / "inbox").c_str(), 0755);
    ASSERT_EQ(copy(source.c_str(), (dir / "inbox").c_str()), 1);
    EXPECT_EQ(read_file(dir / "inbox/a.fax"), content);
}

TEST(Files, CopyingRefusesWhatWouldLoseAFile)
{
    temp_dir dir;
    const std::string source = dir.write("a", content), fifo = dir / "fifo";
    mkfifo(fifo.c_str(), 0600);
    link(source.c_str(), (dir / "same").c_str());
    trace_on trace;
    EXPECT_EQ(copy((dir / "none").c_str(), (dir / "b").c_str()), 0);
    EXPECT_EQ(copy(fifo.c_str(), (dir / "b").c_str()), 0);
    EXPECT_EQ(copy(source.c_str(), (dir / "same").c_str()), 0);
    EXPECT_EQ(copy(source.c_str(), dir.path().c_str()), 0) << "into its own directory";
    EXPECT_EQ(copy(source.c_str(), fifo.c_str()), 0);
    EXPECT_EQ(copy(source.c_str(), (dir / "no/b").c_str()), 0);
    EXPECT_EQ(read_file(source), content);
    EXPECT_TRUE(exists(fifo));
    EXPECT_FALSE(exists(dir / "b"));
    EXPECT_EQ(without(dir, trace.text()), "copy: open(\"./none\") failed: No such file or directory.\n"
                                          "copy: \"./fifo\" isn't a regular file.\n"
                                          "copy: open(\"./same\") failed: File exists.\n"
                                          "copy: open(\"./a\") failed: File exists.\n"
                                          "copy: \"./fifo\" isn't a regular file.\n"
                                          "copy: open(\"./no/b\") failed: No such file or directory.\n");
}

// What `act` gives while no file may grow past two blocks, as on a disk that fills up.
static int on_a_small_disk(int (*act)(const char *, const char *), const std::string &src,
                           const std::string &dst)
{
    struct rlimit old;
    getrlimit(RLIMIT_FSIZE, &old);
    const struct rlimit small = {16384, old.rlim_max};
    auto handler = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    int result = act(src.c_str(), dst.c_str());
    setrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, handler);
    return result;
}

TEST(Files, AHalfMadeCopyIsRemoved)
{
    temp_dir dir;
    const std::string source = dir.write("a", content), target = dir / "b";
    trace_on trace;
    EXPECT_EQ(on_a_small_disk(copy, source, target), 0);
    EXPECT_FALSE(exists(target));
    EXPECT_EQ(without(dir, trace.text()), "copy: write(\"./b\") failed: File too large.\n");
}

TEST(Files, MovingRenamesOrCopies)
{
    temp_dir dir;
    mkdir((dir / "inbox").c_str(), 0755);
    const std::string source = dir.write("a", content);
    ASSERT_EQ(cv_move(source.c_str(), (dir / "b").c_str()), 1);
    ASSERT_EQ(cv_move((dir / "b").c_str(), (dir / "inbox").c_str()), 1);
    EXPECT_FALSE(exists(dir / "b"));
    EXPECT_EQ(read_file(dir / "inbox/b"), content);

    EXPECT_EQ(cv_move((dir / "inbox/b").c_str(), (dir / "inbox").c_str()), 0) << "onto itself";
    EXPECT_EQ(read_file(dir / "inbox/b"), content);
    EXPECT_EQ(cv_move((dir / "inbox").c_str(), (dir / "c").c_str()), 0);
    EXPECT_EQ(cv_move(source.c_str(), (dir / "c").c_str()), 0);
}

TEST(Files, MovingCrossesFileSystems)
{
    temp_dir dir;
    struct stat here = {}, there = {};
    if (stat(dir.path().c_str(), &here) != 0 || stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev)
        GTEST_SKIP() << "/dev/shm is no other file system";
    scoped_env shm("TMPDIR", "/dev/shm");
    temp_dir other;
    const std::string source = dir.write("a", content);
    chmod(source.c_str(), 0600);
    EXPECT_EQ(on_a_small_disk(cv_move, source, other / "b"), 0);
    EXPECT_EQ(read_file(source), content);
    EXPECT_FALSE(exists(other / "b"));
    ASSERT_EQ(cv_move(source.c_str(), (other / "b").c_str()), 1);
    EXPECT_FALSE(exists(source));
    EXPECT_EQ(read_file(other / "b"), content);
    EXPECT_EQ(mode_of(other / "b"), 0600U);
}

TEST(FileNames, KnowTheirCharactersAndDigits)
{
    char out[16];
    EXPECT_STREQ(posix_file_name_filter("Quote me!", out), "_uote_me_");
    EXPECT_STREQ(posix_file_name_filter("a/b.c-D_9\xE4Z", out), "a_b.c-D_9Z");
    const std::pair<int, const char *> rows[] = {{0, "aaa"}, {26, "aba"}, {676, "baa"}, {17576, "baaa"}};
    for (const auto &[n, text] : rows)
        EXPECT_STREQ(int_to_base_26(n), text);
}

TEST(FileNames, UniqueNamesGoOnAcrossCalls)
{
    temp_dir temp, dir;
    scoped_env set("ONDRIXTMP", temp.path().c_str());
    auto next = [&dir](const char *ext) {
        char path[MAXPATHLEN];
        snprintf(path, sizeof path, "%s/some_fax", dir.path().c_str());
        return std::string(build_unique_DOS_name(path, ext)).substr(dir.path().size() + 1);
    };
    auto after_stem = [](const std::string &name) { return name.substr(5); };

    const std::string first = next(nullptr);
    EXPECT_EQ(after_stem(first), "aaa.fax");
    EXPECT_EQ(after_stem(next(".tif")), "aab.tif");
    EXPECT_EQ(read_file(temp / "i_d_order"), "2\n");
    dir.write(first.substr(0, 5) + "aac.fax", "taken");
    EXPECT_EQ(after_stem(next(nullptr)), "aad.fax");
    temp.write("i_d_order", "17572");
    EXPECT_EQ(after_stem(next(nullptr)), "zzw.fax");
    for (const char *bad : {"17573", "-1", "x", ""}) {
        temp.write("i_d_order", bad);
        EXPECT_EQ(after_stem(next(nullptr)), "aaa.fax") << bad;
    }
}

TEST(DirList, FiltersByPattern)
{
    temp_dir dir;
    std::vector<std::string> written;
    for (int i = 0; i < 250; i++) {
        written.push_back(std::to_string(1000 + i) + (i % 2 ? ".fax" : ".tif"));
        dir.write(written.back(), "");
    }
    std::unique_ptr<dir_list_t, deleter<dir_close>> list(dir_open(dir.path().c_str()));
    ASSERT_TRUE(list);
    auto names = [&list](const char *pattern) {
        std::vector<std::string> found;
        for (const char *name = dir_grep(list.get(), pattern); name; name = dir_grep(list.get(), nullptr))
            found.push_back(name);
        std::sort(found.begin(), found.end());
        return found;
    };
    EXPECT_EQ(dir_grep(list.get(), ""), nullptr) << "no pattern yet";
    EXPECT_EQ(names("^1"), written);
    EXPECT_TRUE(names("^1").empty()) << "the cursor stays at the end";
    dir_rewind(list.get());
    EXPECT_EQ(names("^10+1?[01]\\.(fax|tif)$"),
              (std::vector<std::string>{"1000.tif", "1001.fax", "1010.tif", "1011.fax"}));
    dir_rewind(list.get());
    errno = 0;
    EXPECT_EQ(dir_grep(list.get(), "("), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(dir_open((dir / "none").c_str()), nullptr);
}

}  // namespace faxtray
