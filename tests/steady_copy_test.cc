#include "config/steady_copy.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>

#include "support/daemon.h"
#include "support/temp_dir.h"

namespace faxtray {

static const std::string half = "[Bert]\n", whole = half + "password = 2fc7b405\n";

// An editor that empties the file and writes it in two parts, again and again.
[[noreturn]] static void edit(const std::string &path)
{
    for (;; usleep(100)) {
        const unique_fd fd(open(path.c_str(), O_WRONLY | O_TRUNC));
        if (write(fd.get(), whole.data(), half.size()) < 0 ||
            write(fd.get(), whole.data() + half.size(), whole.size() - half.size()) < 0)
            _exit(1);
    }
}

// 0 if it was read whole, and never in part.
static int read_often(const std::string &path)
{
    using clock = std::chrono::steady_clock;
    bool was_read = false;
    for (const auto end = clock::now() + std::chrono::milliseconds(300); !was_read || clock::now() < end;) {
        steady_copy_t copy;
        char text[64];
        if (read_steady(path.c_str(), {}, &copy) != 0)
            continue;
        was_read = true;
        if (whole != std::string(text, fread(text, 1, sizeof text, copy.file.get())))
            return 1;
    }
    return 0;
}

TEST(SteadyCopy, HoldsWhatNobodyIsWritingAndSurvivesWriters)
{
    temp_dir dir;
    const std::string path = dir.write("list", whole);
    chmod(dir.path().c_str(), 0755);
    const pid_t editor = fork();
    if (editor == 0)
        edit(path);
    for (const uid_t user : {geteuid(), uid_t{65534}}) {
        if (user != geteuid() && (geteuid() != 0 || chown(path.c_str(), user, user) != 0))
            continue;
        const pid_t reader = fork();
        if (reader == 0)
            _exit(setuid(user) == 0 ? read_often(path) : 3);
        EXPECT_EQ(await(reader), 0) << user;
    }
    kill(editor, SIGKILL);
    waitpid(editor, nullptr, 0);

    steady_copy_t copy;
    ASSERT_EQ(truncate(path.c_str(), (256 << 20) + 1), 0);
    EXPECT_EQ(read_steady(path.c_str(), {}, &copy), EFBIG);
}

}  // namespace faxtray
