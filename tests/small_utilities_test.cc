// The small utilities: text, version_id, crc, clock_text, node_queue.
#include "util/text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <clocale>
#include <string>
#include <vector>

#include "support/capture.h"
#include "util/clock_text.h"
#include "util/crc.h"
#include "util/node_queue.h"
#include "util/owned.h"
#include "util/version_id.h"

namespace faxtray {

using strings = std::vector<std::string>;

TEST(Text, SplitsIntoTrimmedPieces)
{
    const struct {
        const char *text;
        strings pieces;
    } rows[] = {
        {"a, b ,c", {"a", "b", "c"}},
        {"", {""}},
        {",", {"", ""}},
        {" \t ,x y,", {"", "x y", ""}},
    };
    for (const auto &row : rows) {
        char **fields = nullptr;
        int count = split(row.text, ',', &fields);
        std::unique_ptr<char *, deleter<std::free>> owner(fields);
        ASSERT_EQ(count, static_cast<int>(row.pieces.size())) << row.text;
        EXPECT_EQ(strings(fields, fields + count), row.pieces) << row.text;
        EXPECT_EQ(fields[count], nullptr);
        EXPECT_EQ(split(row.text, ',', nullptr), count);
    }
    EXPECT_EQ(split(nullptr, ',', nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Text, TrimsInPlace)
{
    const struct {
        const char *text, *leading, *trailing, *enclosing;
    } rows[] = {
        {" \ta b\n ", "a b\n ", " \ta b", "a b"},
        {"\" x \"", "\" x \"", "\" x \"", "x"},
        {" \t", "", "", ""},
        {"", "", "", ""},
    };
    for (const auto &row : rows) {
        std::string one = row.text, two = row.text, three = row.text;
        EXPECT_STREQ(rm_leading_whitespace(one.data()), row.leading);
        rm_trailing_whitespace(two.data());
        EXPECT_STREQ(two.c_str(), row.trailing);
        EXPECT_STREQ(strip_enclosing_whitespace(three.data()), row.enclosing);
    }
}

TEST(Text, SearchesWithoutRegardToCase)
{
    const char text[] = "Reply-To: FaxTray";
    EXPECT_EQ(strcasestr(text, "faxtray"), text + 10);
    EXPECT_EQ(strcasestr(text, "fat"), nullptr);
    EXPECT_EQ(strcasestr(text, "FaxTrays"), nullptr);
    EXPECT_EQ(strcasestr(text, ""), text);
}

TEST(Text, ReadsOctalPermissions)
{
    const struct {
        const char *text;
        int value;
    } rows[] = {{"0777", 0777}, {"640", 0640},          {"1000", -1}, {"8", -1},
                {"6 ", -1},     {"77777777777777", -1}, {"", 0},      {nullptr, 0}};
    for (const auto &row : rows)
        EXPECT_EQ(octal_perms_to_int(row.text), row.value) << (row.text ? row.text : "null");
}

TEST(VersionId, GivesFieldsOfTheLastParse)
{
    char info[64];
    const char id[] = "@(#)|misc_api|9|01|2|0|0|07/26/99|14:39:28";
    EXPECT_EQ(rev_revinfo(id, info, sizeof info), 29);
    EXPECT_STREQ(info, "Version  9.2     Release 9.01");
    EXPECT_STREQ(rev_module(nullptr), "misc_api");
    EXPECT_STREQ(rev_delta_time(""), "14:39:28");

    EXPECT_STREQ(rev_branch("||a|b|c||d|e|f|g|h|i"), "f") << "empty fields collapse";
    EXPECT_EQ(rev_module("a|b|c|d|e|f|g|h"), nullptr) << "eight fields";
    EXPECT_EQ(rev_module(nullptr), nullptr) << "a bad string replaces the last parse";
    EXPECT_EQ(rev_revinfo("a|b", info, sizeof info), 0);
    EXPECT_GT(rev_revinfo(SCCS_ID, info, sizeof info), 0);
    EXPECT_STREQ(info, "Version %R%.%L%   Release %R%.0");
    EXPECT_EQ(rev_revinfo("m|n|9|x|2|0|0|d|t", info, 8), 7) << "cut to its buffer";
}

TEST(Crc, StartsFromZeroAndIsNotInverted)
{
    // The common CRC-32's check value, made from our routine by its start and its final inversion.
    uint32_t table[256];
    crc_load_rev_table(0xEDB88320, table);
    EXPECT_EQ(~crc_rev_update("123456789", 9, ~0U, table), 0xCBF43926U);
    EXPECT_EQ(crc_val("123456789", 9), crc_rev_update("123456789", 9, 0, table));
    EXPECT_EQ(crc_val("\1", 1), 0x77073096U);
    EXPECT_EQ(crc_val("", 0), 0U);
}

TEST(Crc, HashesPasswordsAndRefusesUnfitOnes)
{
    EXPECT_STREQ(passwd("\1"), "77073096");
    EXPECT_STREQ(passwd("\1\nrest of the line"), "77073096");
    const struct {
        std::string text, message;
    } rows[] = {
        {"abc def", "Invalid password.  You cannot include spaces.\n"},
        {std::string(4096, 'x'), "Invalid password.  Exceeeds 4096 characters.\n"},
        {"", "Invalid password.  Password is null.\n"},
        {"\nabc", "Invalid password.  Password is null.\n"},
    };
    for (const auto &row : rows) {
        capture_stderr printed;
        EXPECT_EQ(passwd(row.text.c_str()), nullptr);
        EXPECT_EQ(printed.text(), row.message);
    }
    EXPECT_NE(passwd(std::string(4095, 'x').c_str()), nullptr);
}

TEST(ClockText, TellsTheTimeGivenOrNow)
{
    const time_t when = 1000000000, zero = 0, never = INT64_MAX;
    EXPECT_EQ(std::string(cv_ctime(&when)) + "\n", ctime(&when));
    std::string now = cv_ctime(nullptr);
    EXPECT_EQ(now.size(), 24U);
    EXPECT_EQ(std::string(cv_ctime(&zero)).substr(20), now.substr(20));
    EXPECT_STREQ(cv_ctime(&never), "");
}

TEST(ClockText, EmptiesABufferThatIsTooSmall)
{
    char date[32], time[32], small[4] = "old";
    ASSERT_EQ(cv_get_date_time("C", date, sizeof date, time, sizeof time), 1);
    EXPECT_EQ(std::string(date).size(), 8U);
    EXPECT_EQ(std::string(time).size(), 8U);
    EXPECT_EQ(cv_get_date_time("C", small, sizeof small, nullptr, 0), 0);
    EXPECT_STREQ(small, "");
    EXPECT_STREQ(setlocale(LC_TIME, nullptr), "C");
}

TEST(NodeQueue, IsFirstInFirstOut)
{
    npurge();
    EXPECT_EQ(nhead(), 0);
    EXPECT_EQ(ndeq(), 0);
    nenq(7);
    nenq(8);
    nenq(9);
    EXPECT_EQ(nhead(), 7);
    EXPECT_EQ(ntail(), 9);
    EXPECT_EQ(ndeq(), 8) << "the new head";
    EXPECT_EQ(ncount(), 2);
    EXPECT_EQ(ndeq(), 9);
    EXPECT_EQ(ndeq(), 0);
    nenq(1);
    npurge();
    EXPECT_EQ(ncount(), 0);
}

}  // namespace faxtray
