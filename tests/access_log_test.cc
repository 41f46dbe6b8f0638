#include "log/access_log.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <regex>

#include "support/capture.h"
#include "util/settings.h"

namespace faxtray {

// The file's lines, without the times.
static std::string lines_of(const std::string &path)
{
    return std::regex_replace(read_file(path), std::regex("=[0-9]{4}-[-0-9T:]+Z"), "=TIME");
}

// 150 addresses, 12 wrong passwords each: 100 are counted one by one, and the others together.
TEST(AccessLog, IsBoundedWhateverStrangersDo)
{
    const temp_dir dir;
    snprintf(dvWork_dir, sizeof dvWork_dir, "%s", dir.path().c_str());
    const std::string path = dir / "access_log";
    for (int n = 0; n < 150 * 12; n++) {
        access_request({1000 + n / 60, std::to_string(n % 150).c_str(), "1", "anna", 5, 7});
        access_refusal(nullptr);
    }
    EXPECT_EQ(std::ranges::count(read_file(path), '\n'), 100 * 10 + 10);

    // After a minute, one line tells how many there were of each, and lines are written again.
    std::filesystem::remove(path);
    access_request({1060, "0", "1", "anna", 5, 7});
    access_refusal("x");
    const std::string text = lines_of(path);
    EXPECT_TRUE(text.starts_with("time=TIME event=password peer=0 more=2 since=TIME\n")) << text;
}

// A file that has no room for a line: what is written later stands on lines of its own.
TEST(AccessLog, GoesOnAfterATornLine)
{
    const temp_dir dir;
    snprintf(dvWork_dir, sizeof dvWork_dir, "%s", dir.path().c_str());
    access_request({9000, "::1", "2", std::string(300, 'x').c_str(), 6, 7});
    const std::string path = dir.write("access_log", std::string(390, '-')), name = '"' + path + '"';
    signal(SIGXFSZ, SIG_IGN);
    rlimit whole = {};
    getrlimit(RLIMIT_FSIZE, &whole);
    const rlimit room = {400, whole.rlim_max};
    setrlimit(RLIMIT_FSIZE, &room);
    capture_stderr err;
    access_removal("/a", 8, 0);
    access_removal("/a", 8, 0);
    setrlimit(RLIMIT_FSIZE, &whole);
    access_removal("/a \n\"b\\", 8, 0);
    EXPECT_EQ(err.text(), "access_log: Can't write " + name +
                              ": No space left on device\naccess_log: 2 lines of " + name +
                              " are missing.\n");
    EXPECT_EQ(lines_of(path).substr(400),
              "\ntime=TIME event=remove peer=::1 port=2 user=" + std::string(255, 'x') +
                  " procedure=6 id=8 fax=/a\\x20\\x0A\\x22b\\x5C result=ok\n");
}

}  // namespace faxtray
