// The command line: what each letter sets, and what is said of a wrong one.
#include "daemon/options.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "deliver/exception_log.h"
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
    EXPECT_EQ(options.exit_status, -1);
    EXPECT_TRUE(options.foreground);
    EXPECT_STREQ(options.log_file.get(), "log");
    EXPECT_STREQ(modem_info, "m");
    EXPECT_STREQ(user_info, "u");
    EXPECT_STREQ(dvWork_dir, "dir");
    EXPECT_STREQ(dvLog_callbacks, "cmd");
    EXPECT_EQ(Update_slop, 7);
    EXPECT_EQ(Debug + Regd_challenged, 2);
    EXPECT_EQ(elog_toggle_notify(0), 1);

    parse({"-W", std::string(300, 'w'), "-L", std::string(2000, 'l')});
    EXPECT_EQ(dvWork_dir, std::string(255, 'w'));
    EXPECT_EQ(dvLog_callbacks, std::string(1023, 'l'));
}

TEST(Options, WrongOnesSetNothing)
{
    static const struct {
        std::vector<std::string> words;
        int exit_status, delay;
        const char *said;
    } rows[] = {
        {{"-M", "-D"}, 10, 60, "faxtrayd: Missing arg for -M\n"},
        {{"-U", "-"}, 10, 60, "faxtrayd: Missing arg for -U\n"},
        {{"-i", "-R"}, 10, 60, "faxtrayd: Missing arg for -R\n"},
        {{"-W", "-D"}, 10, 60, "faxtrayd: Missing arg for -W\n"},
        {{"-d"}, 10, 60, "faxtrayd: Missing arg for -d\n"},
        {{"-l", "-D"}, 10, 60, "faxtrayd: Missing arg for -p\n"},
        {{"-l", "", "-M", "", "-d", ""}, -1, 60, ""},
        {{"-L", "-D"}, -1, 60, ""},
        {{"-L"}, -1, 60, ""},
        {{"-d", "0"}, -1, 0, ""},
        {{"-d", "5s"}, -1, 5, ""},
        {{"-d", "-5"}, -1, 60, "faxtrayd: Bad delay: [-5].\n"},
        {{"-d", "99999999999"}, -1, 60, "faxtrayd: Bad delay: [99999999999].\n"},
        {{"-E", "-d", "9"}, -1, 9, "faxtrayd: Warning: faxtrayd may be out of date\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.words));
        std::string said;
        const options_t options = parse(row.words, &said);
        EXPECT_EQ(options.exit_status, row.exit_status);
        EXPECT_EQ(Update_slop, row.delay);
        EXPECT_EQ(said, row.said);
        EXPECT_TRUE(!options.foreground && !Debug && !options.log_file && !modem_info && !user_info);
        EXPECT_STREQ(dvLog_callbacks, "");
    }
}

}  // namespace faxtray
