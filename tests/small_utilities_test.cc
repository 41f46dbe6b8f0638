// The small utilities: version_id, crc, clock_text, node_queue.
#include "util/crc.h"

#include <gtest/gtest.h>

#include <string>

#include "deliver/node_queue.h"
#include "support/capture.h"
#include "util/clock_text.h"
#include "util/short_hash.h"
#include "util/version_id.h"

namespace faxtray {

TEST(VersionId, IsCutToItsBufferAndHeldUntilABadOneComes)
{
    char info[64];
    EXPECT_GT(rev_revinfo(SCCS_ID, info, sizeof info), 0);
    EXPECT_STREQ(info, "Version %R%.%L%   Release %R%.0");
    EXPECT_EQ(rev_revinfo("m|n|9|x|2|0|0|d|t", info, 8), 7);
    EXPECT_STREQ(rev_delta_time(""), "t");
    EXPECT_EQ(rev_module("a|b"), nullptr);
    EXPECT_EQ(rev_module(nullptr), nullptr);
}

TEST(Crc, StartsFromZeroAndIsNotInverted)
{
    // The common CRC-32's check value, made from our routine by its start and its final inversion.
    uint32_t table[256];
    crc_load_rev_table(0xEDB88320, table);
    EXPECT_EQ(~crc_rev_update("123456789", 9, ~0U, table), 0xCBF43926U);
    EXPECT_EQ(crc_val("123456789", 9), crc_rev_update("123456789", 9, 0, table));
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
    EXPECT_EQ(cv_get_date_time("C", date, sizeof date, nullptr, 0), 1);
    EXPECT_EQ(cv_get_date_time("C", small, sizeof small, nullptr, 0), 0);
    EXPECT_STREQ(small, "");
}

TEST(NodeQueue, IsFirstInFirstOut)
{
    for (intptr_t value : {7, 8, 9})
        nenq(value);
    EXPECT_EQ(ndeq(), 8) << "the new head";
    EXPECT_EQ(ncount(), 2);
    npurge();
    EXPECT_EQ(ndeq(), 0);
}

}  // namespace faxtray
