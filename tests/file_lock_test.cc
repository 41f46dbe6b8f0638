// What several hosts write at once, here as processes that open the same file anew.
#include "util/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/param.h>
#include <sys/wait.h>

#include <functional>
#include <set>
#include <sstream>

#include "disk/file_names.h"
#include "support/capture.h"
#include "util/owned.h"

namespace faxtray {

static constexpr int writers = 4, times = 100;

static void in_many_processes(const std::function<void()> &body)
{
    for (int n = 0; n < writers; n++)
        if (fork() == 0) {
            for (int i = 0; i < times; i++)
                body();
            _exit(0);
        }
    for (int status, n = 0; n < writers; n++) {
        ASSERT_GT(wait(&status), 0);
        EXPECT_EQ(status, 0);
    }
}

TEST(SharedFiles, NoShortNameIsChosenTwice)
{
    temp_dir dir;
    scoped_env counter("ONDRIXTMP", dir.path().c_str());
    const std::string chosen = dir / "chosen";
    in_many_processes([&] {
        char path[MAXPATHLEN] = "x";
        std::string line = build_unique_DOS_name(path, ".fax") + std::string("\n");
        const unique_fd fd(open(chosen.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600));
        if (write(fd.get(), line.data(), line.size()) < 0)
            _exit(1);
    });
    std::istringstream lines(read_file(chosen));
    std::set<std::string> names;
    for (std::string name; lines >> name;)
        EXPECT_TRUE(names.insert(name).second) << name;
    EXPECT_EQ(names.size(), size_t{writers * times});
}

// As NFS and GlusterFS append: to where the writer has seen the end.
TEST(SharedFiles, ALockOfAnOpenFileIsKeptByEachThatHasItAlone)
{
    temp_dir dir;
    const std::string counted = dir / "counted";
    in_many_processes([&] {
        const unique_fd fd(open(counted.c_str(), O_RDWR | O_CREAT, 0600));
        const file_locked locked(fd.get());
        unique_fd(open(counted.c_str(), O_RDONLY));  // which would give up a lock of the process
        if (const off_t end = lseek(fd.get(), 0, SEEK_END); pwrite(fd.get(), "x", 1, end) != 1)
            _exit(1);
    });
    EXPECT_EQ(read_file(counted).size(), size_t{writers * times});
}

}  // namespace faxtray
