// The small utilities: text, version_id, crc, clock_text, node_queue.
#include "util/text.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
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

TEST(Text, StripsWhiteSpaceAndQuotesFromBothEnds)
{
    std::string rows[][2] = {{" \t\"a\" b \"\n ", "a\" b"}, {"\" \"", ""}, {"", ""}};
    for (auto &[text, left] : rows)
        EXPECT_STREQ(strip_enclosing_whitespace(text.data()), left.c_str());
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
    const std::pair<const char *, int> rows[] = {
        {"0777", 0777}, {"640", 0640}, {"1000", -1}, {"8", -1}, {"6 ", -1}, {"", 0}, {"77777777777777", -1}};
    for (const auto &[text, value] : rows)
        EXPECT_EQ(octal_perms_to_int(text), value) << text;
    EXPECT_EQ(octal_perms_to_int(nullptr), 0);
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
}

TEST(Crc, HashesPasswordsAndRefusesUnfitOnes)
{
    EXPECT_STREQ(passwd("\1\nrest of the line"), "77073096");
    const std::pair<std::string, const char *> rows[] = {
        {"abc def", "Invalid password.  You cannot include spaces.\n"},
        {std::string(4096, 'x'), "Invalid password.  Exceeeds 4096 characters.\n"},
        {"\nabc", "Invalid password.  Password is null.\n"},
    };
    for (const auto &[text, message] : rows) {
        capture_stderr printed;
        EXPECT_EQ(passwd(text.c_str()), nullptr);
        EXPECT_EQ(printed.text(), message);
    }
    EXPECT_NE(passwd(std::string(4095, 'x').c_str()), nullptr);
}

TEST(ClockText, TellsTheTimeGivenOrNow)
{
    const time_t when = 1000000000, zero = 0, never = INT64_MAX;
    EXPECT_EQ(std::string(cv_ctime(&when)) + "\n", ctime(&when));
    std::string now = cv_ctime(nullptr);
    EXPECT_EQ(std::string(cv_ctime(&zero)).substr(20), now.substr(20)) << "the same year";
    EXPECT_STREQ(cv_ctime(&never), "");
}

TEST(ClockText, EmptiesABufferThatIsTooSmall)
{
    char date[9], time[9], small[8] = "old";
    ASSERT_EQ(cv_get_date_time("C", date, sizeof date, time, sizeof time), 1);
    EXPECT_EQ(strlen(date) + strlen(time), 16U);
    EXPECT_EQ(cv_get_date_time("C", small, sizeof small, nullptr, 0), 0);
    EXPECT_STREQ(small, "");
}

TEST(NodeQueue, IsFirstInFirstOut)
{
    for (intptr_t value : {7, 8, 9})
        nenq(value);
    EXPECT_EQ(nhead() + ntail(), 7 + 9);
    EXPECT_EQ(ndeq(), 8) << "the new head";
    EXPECT_EQ(ncount(), 2);
    npurge();
    EXPECT_EQ(ndeq(), 0);
}

}  // namespace faxtray
