// The command line: what each letter sets, and what is said of a wrong one.
#include "daemon/options.h"

#include <gtest/gtest.h>

#include <string>
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
    modem_info = user_info = nullptr;
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
    const options_t options =
        parse({"-DbfM", "m", "-Uu", "-d", "7", "-W", "dir", "-Lcmd", "-l", "log", "-i", "-Rx"});
    EXPECT_EQ(options.exit_status, -1);
    EXPECT_TRUE(options.foreground);
    EXPECT_STREQ(options.log_file.get(), "log");
    EXPECT_STREQ(modem_info, "m");
    EXPECT_STREQ(user_info, "u");
    EXPECT_STREQ(dvWork_dir, "dir");
    EXPECT_STREQ(dvLog_callbacks, "cmd");
    EXPECT_EQ(Update_slop, 7);
    EXPECT_EQ(Debug, 1);
    EXPECT_EQ(Regd_challenged, 1);
    EXPECT_EQ(elog_toggle_notify(0), 1);
}

TEST(Options, RefuseToGoWithoutTheirValue)
{
    static const struct {
        std::vector<std::string> words;
        int exit_status;
        const char *said;
    } rows[] = {
        {{"-M"}, 10, "faxtrayd: Missing arg for -M\n"},
        {{"-M", "-f"}, 10, "faxtrayd: Missing arg for -M\n"},
        {{"-U", "-"}, 10, "faxtrayd: Missing arg for -U\n"},
        {{"-f", "-R"}, 10, "faxtrayd: Missing arg for -R\n"},
        {{"-W", "-x"}, 10, "faxtrayd: Missing arg for -W\n"},
        {{"-d"}, 10, "faxtrayd: Missing arg for -d\n"},
        {{"-d", "-f"}, 10, "faxtrayd: Missing arg for -d\n"},
        {{"-l"}, 10, "faxtrayd: Missing arg for -p\n"},
        {{"-l", ""}, -1, ""},
        {{"-M", ""}, -1, ""},
        {{"-L"}, -1, ""},
        {{"-L", "-f"}, -1, ""},
    };
    for (const auto &row : rows) {
        std::string said;
        const options_t options = parse(row.words, &said);
        EXPECT_EQ(options.exit_status, row.exit_status) << row.words.front();
        EXPECT_EQ(said, row.said);
        EXPECT_FALSE(options.foreground && row.words.front() != "-f");
        EXPECT_EQ(options.log_file, nullptr);
        EXPECT_EQ(modem_info, nullptr);
        EXPECT_STREQ(dvLog_callbacks, "");
    }
}

TEST(Options, GoOnAfterABadDelayOrAnUnknownLetter)
{
    static const struct {
        std::vector<std::string> words;
        int delay;
        const char *said;
    } rows[] = {
        {{"-d", "0"}, 0, ""},
        {{"-d", "5s"}, 5, ""},
        {{"-d", ""}, 60, ""},
        {{"-d", "-5"}, 60, "faxtrayd: Bad delay: [-5].\n"},
        {{"-d", "abc"}, 60, "faxtrayd: Bad delay: [abc].\n"},
        {{"-d", "99999999999"}, 60, "faxtrayd: Bad delay: [99999999999].\n"},
        {{"-x"}, 60, "faxtrayd: Warning: faxtrayd may be out of date\n"},
        {{"-E", "-d", "9"}, 9, "faxtrayd: Warning: faxtrayd may be out of date\n"},
    };
    for (const auto &row : rows) {
        std::string said;
        EXPECT_EQ(parse(row.words, &said).exit_status, -1) << row.words.back();
        EXPECT_EQ(Update_slop, row.delay) << row.words.back();
        EXPECT_EQ(said, row.said);
    }
}

TEST(Options, HelpEndsTheProgramWellAndIsPrinted)
{
    capture_stdout out;
    EXPECT_EQ(parse({"-h", "-M"}).exit_status, 0);
    const std::string usage = out.text();
    EXPECT_EQ(usage.find("Faxtrayd version: %Z%|%M%|%R%|0|%L%|%B%|%S%|%G%|%U%.\nUsage:\n"), 0u);
    EXPECT_NE(usage.find("[-l log-file]n\n"), std::string::npos);
}

TEST(Options, CutWhatDoesNotFit)
{
    parse({"-W", std::string(300, 'w'), "-L", std::string(2000, 'l')});
    EXPECT_EQ(dvWork_dir, std::string(255, 'w'));
    EXPECT_EQ(dvLog_callbacks, std::string(1023, 'l'));
}

}  // namespace faxtray
