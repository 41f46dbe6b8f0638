// The command line: what each letter sets, and what is said of a wrong one.
#include "daemon/options.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "log/exception_log.h"
#include "support/capture.h"
#include "util/settings.h"

namespace faxtray {

// Parses a command line with the settings at their defaults; `said` is what went to standard error.
static options_t parse(std::vector<std::string> words, std::string *said = nullptr)
{
    Update_slop = 60;
    Debug = Regd_challenged = 0;
    free(std::exchange(modem_info, nullptr));
    free(std::exchange(user_info, nullptr));
    dvLog_callbacks[0] = '\0';
    Program = "faxtrayd";
    words.insert(words.begin(), Program);
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    capture_stderr err;
    options_t options = parse_options(static_cast<int>(words.size()), argv.data());
    if (said)
        *said = err.text();
    return options;
}

TEST(Options, SetWhatOtherRoomsRead)
{
    const options_t options = parse({"-DbfM", "m", "-Uu", "-d", "7", "-W", "dir", "-Lcmd", "-l", "log"});
    EXPECT_TRUE(options.foreground && options.exit_status == -1);
    EXPECT_EQ(std::string(options.log_file.get()) + modem_info + user_info, "logmu");
    EXPECT_EQ(Update_slop, 7);
    EXPECT_EQ(Debug + Regd_challenged, 2);
    EXPECT_EQ(elog_toggle_notify(0), 1);

    parse({"-W", std::string(300, 'w'), "-L", std::string(2000, 'l')});
    EXPECT_EQ(dvWork_dir, std::string(255, 'w'));
    EXPECT_EQ(dvLog_callbacks, std::string(1023, 'l'));
}

TEST(Options, WrongOnesSetNothing)
{
    auto told = [](std::vector<std::string> words) {
        std::string said;
        const options_t options = parse(std::move(words), &said);
        EXPECT_TRUE(!options.foreground && !Debug && !options.log_file && !modem_info && !user_info);
        return std::to_string(options.exit_status) + " " + std::to_string(Update_slop) + " " + said;
    };
    EXPECT_EQ(told({"-l", "-D"}), "10 60 faxtrayd: Missing arg for -p\n");
    EXPECT_EQ(told({"-l", "", "-M", "", "-d", ""}), "-1 60 ");
    EXPECT_EQ(told({"-d", "5s"}), "-1 5 ");
    EXPECT_EQ(told({"-d", "0", "-L"}), "-1 0 ");
    EXPECT_EQ(told({"-d", "-5", "-d", "2147483648"}),
              "-1 60 faxtrayd: Bad delay: [-5].\nfaxtrayd: Bad delay: [2147483648].\n");
}

}  // namespace faxtray
