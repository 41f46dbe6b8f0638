#include "log/exception_log.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <regex>
#include <string>

#include "support/capture.h"

namespace faxtray {

static constexpr char version[] = "@(#)|deliver|9|01|2|3|4|07/26/99|14:39:28";

static std::string timeless(const std::string &text)
{
    static const std::regex now("[0-9]{2}-[A-Z][a-z]{2}-[0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}");
    return std::regex_replace(text, now, "TIME");
}

#define X16  "xxxxxxxxxxxxxxxx"
#define X128 X16 X16 X16 X16 X16 X16 X16 X16  // a quarter of what counts of a format

TEST(ExceptionLog, LineTellsTimeLevelMessageAndPlace)
{
    temp_dir dir;
    std::string log = dir / "exception_log";
    ASSERT_EQ(elog_init("faxtrayd", log.c_str(), 0), 1);
    EXPECT_EQ(elog_init("other", "", 1), 0);
    EXPECT_EQ(elog_writef(version, "deliver.cc", 42, ELOG_FATAL, ELOG_FILE, "lost [%s]: %d\n\n", "a\n", 7),
              1);
    EXPECT_EQ(elog_writef("no version", nullptr, 0, ELOG_WARNING, ELOG_FILE, "%s", ""), 1);
    EXPECT_EQ(elog_writef(nullptr, "x.cc", 1, 7, ELOG_FILE, "odd"), 1);
    EXPECT_EQ(elog_writef(nullptr, "x.cc", 2, ELOG_NOTICE, ELOG_FILE, X128 X128 X128 X128 "%s", "cut"), 1);
    EXPECT_EQ(timeless(read_file(log)), "TIME   FATAL:  lost [a\n]: 7  //faxtrayd [deliver.cc:42] 9.2.3.4\n"
                                        "TIME WARNING:    //faxtrayd [(NULL):0] ...\n"
                                        "TIME     HUH:  odd  //faxtrayd [x.cc:1] ...\n"
                                        "TIME  NOTICE:  " X128 X128 X128 X128 "  //faxtrayd [x.cc:2] ...\n");
}

TEST(ExceptionLog, FallsBackToStandardErrorWhenTheFileCannotBeWritten)
{
    elog_init("faxtrayd", "/dev/null/log", 1);
    capture_stderr err;
    errno = ENOTTY;
    EXPECT_EQ(elog_writef(version, "x.cc", 1, ELOG_ERROR, ELOG_FILE, "said"), 0);
    EXPECT_EQ(elog_writef(version, "x.cc", 1, ELOG_ERROR, elog_file_and_stderr, "again"), 0);
    EXPECT_EQ(errno, ENOTTY) << "not that of the file that could not be opened";
    const std::string failed =
        "elog_writef:  failed to fopen(\"/dev/null/log\"),errno=20," + std::string(version) + ",x.cc,1\n";
    EXPECT_EQ(timeless(err.text()), failed + "TIME   ERROR:  said  //faxtrayd [x.cc:1] 9.2.3.4\n" + failed +
                                        "TIME   ERROR:  again\n");
}

static std::string told;

static void tell(const elog_entry_t &entry) noexcept
{
    told += timeless(std::string(entry.prefix) + entry.message + entry.trailer);
    told += "queue " + std::to_string(entry.queue) + (entry.notify ? " notify" : " quiet") +
            (entry.written < 0 ? " lost\n" : " written\n");
    if (entry.notify)
        elog_writef(version, "x.cc", 2, ELOG_ERROR, ELOG_FILE, "inner");
}

TEST(ExceptionLog, NotifierHearsOfEachEntryAndOfItsOwnQuietly)
{
    temp_dir dir;
    elog_init("faxtrayd", (dir / "log").c_str(), 0);
    elog_set_notifier(tell);
    elog_writef(version, "x.cc", 1, ELOG_ERROR, ELOG_FILE, "n%d\n", 1);
    EXPECT_EQ(elog_toggle_notify(1), 0);
    elog_init("faxtrayd", "/dev/full", 3);
    elog_writef(version, "x.cc", 1, ELOG_ERROR, ELOG_FILE, "n%d\n", 2);
    EXPECT_EQ(elog_toggle_notify(0), 1);
    elog_set_notifier(nullptr);
    EXPECT_EQ(told, "TIME   ERROR:  n1  //faxtrayd [x.cc:1] 9.2.3.4\nqueue 1 notify written\n"
                    "TIME   ERROR:  inner  //faxtrayd [x.cc:2] 9.2.3.4\nqueue 1 quiet written\n"
                    "TIME   ERROR:  n2  //faxtrayd [x.cc:1] 9.2.3.4\nqueue 3 quiet lost\n");
}

}  // namespace faxtray
