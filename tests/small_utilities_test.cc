// The small utilities: version_id, crc, short_hash, clock_text, command_output, io.
#include "util/crc.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <clocale>
#include <string>

#include "support/capture.h"
#include "support/wait_for.h"
#include "util/clock_text.h"
#include "util/command_output.h"
#include "util/io.h"
#include "util/owned.h"
#include "util/short_hash.h"
#include "util/version_id.h"

namespace faxtray {

TEST(VersionId, IsCutToItsBufferAndHeldUntilABadOneComes)
{
    char info[64];
    EXPECT_GT(rev_revinfo(SCCS_ID, info, sizeof info), 0);
    EXPECT_STREQ(info, "Version %R%.%L%   Release %R%.0");
    EXPECT_EQ(rev_revinfo("m|n|9|x|2|0|0|d|t", info, 8), 7);
    EXPECT_EQ(rev_module("a|b"), nullptr);
    EXPECT_EQ(rev_module(nullptr), nullptr);
}

TEST(Crc, StartsFromZeroAndIsNotInverted)
{
    // The common CRC-32's check value, made from our routine by its start and its final inversion.
    EXPECT_EQ(~crc_rev_update("123456789", 9, ~0U, crc_table.data()), 0xCBF43926U);
    capture_stderr printed;
    EXPECT_EQ(passwd(std::string(4096, 'x').c_str()), nullptr);
    EXPECT_NE(passwd(std::string(4095, 'x').c_str()), nullptr);
    EXPECT_EQ(printed.text(), "Invalid password.  Exceeeds 4096 characters.\n");
}

TEST(ClockText, TellsTheTimeAndEmptiesABufferThatIsTooSmall)
{
    const time_t when = 1000000000, never = INT64_MAX;
    EXPECT_EQ(std::string(cv_ctime(&when)) + "\n", ctime(&when));
    EXPECT_STREQ(cv_ctime(&never), "");
    char date[9], small[8] = "old";
    setlocale(LC_TIME, "C.UTF-8");
    EXPECT_EQ(cv_get_date_time("C", date, sizeof date, nullptr, 0), 1);
    EXPECT_STREQ(setlocale(LC_TIME, nullptr), "C.UTF-8");
    EXPECT_EQ(cv_get_date_time("C", small, sizeof small, date, sizeof date), 0);
    EXPECT_STREQ(small, "");
    EXPECT_EQ(std::string(date).substr(2, 1), ":");
}

TEST(CommandOutput, WhatCannotBePrintedIsAFailureAndNoSignal)
{
    auto command = [](const char *output, int (*run)(int, char **)) {
        freopen(output, "w", stdout);
        exit(run_command(0, nullptr, run, 3));
    };
    EXPECT_EXIT(command("/dev/full", [](int, char **) { return puts("x"), 0; }), testing::ExitedWithCode(3),
                "can't write the output: No space left on device");
    EXPECT_EXIT(command("/dev/null", [](int, char **) { return raise(SIGPIPE) + raise(SIGXFSZ); }),
                testing::ExitedWithCode(0), "^$");
    EXPECT_EXIT(command("/dev/null", [](int, char **) -> int { throw std::bad_alloc(); }),
                testing::ExitedWithCode(3), "bad_alloc");
}

TEST(Io, MovesAllWhateverTheSystemMovesAtATime)
{
    const std::string text(200000, 'x');
    int ends[2], waiting = 0;
    ASSERT_EQ(pipe(ends), 0);
    unique_fd from(ends[0]), to(ends[1]);
    struct sigaction interrupts = {};  // without SA_RESTART
    interrupts.sa_handler = [](int) {};
    sigaction(SIGUSR1, &interrupts, nullptr);
    const pid_t writer = fork();
    if (writer == 0) {
        const bool written = write_full(to.get(), text.data(), text.size());
        for (int i = 0; i < 5; i++)  // while the reader waits for the end
            usleep(2000), kill(getppid(), SIGUSR1);
        _exit(!written);
    }
    to.reset();
    EXPECT_TRUE(wait_for([&] { return ioctl(from.get(), FIONREAD, &waiting) == 0 && waiting >= 65536; }));
    for (int i = 0; i < 5; i++)  // the first finds a part written, the next ones none
        kill(writer, SIGUSR1), usleep(1000);
    std::string got(text.size() + 1, '\0');
    EXPECT_EQ(read_full(from.get(), got.data(), got.size()), static_cast<ssize_t>(text.size()));
    int status = 0;
    waitpid(writer, &status, 0);
    EXPECT_EQ(status, 0);

    temp_dir dir;
    unique_fd file(open(dir.write("file", "abcdef").c_str(), O_RDWR));
    EXPECT_TRUE(write_full_at(file.get(), "XY", 2, 2) && write_full(file.get(), "Z", 1));
    EXPECT_EQ(read_file(dir / "file"), "ZbXYef");
    const struct rlimit small = {100000, RLIM_INFINITY}, none = {RLIM_INFINITY, RLIM_INFINITY};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_FALSE(write_full_at(file.get(), text.data(), text.size(), 0))
        << "a part fits, the rest goes nowhere else";
    setrlimit(RLIMIT_FSIZE, &none);
}

}  // namespace faxtray
