// Result records: one at a time, their message in the shared buffer, never longer than it.
#include "daemon/replies.h"

#include <gtest/gtest.h>

#include <string>

namespace faxtray {

TEST(Replies, OverwriteWhatTheResultHeld)
{
    static in_res_t result;
    EXPECT_EQ(error_reply(result, IE_SYSTEM, 13, "Trayd: %s: %d", "text", 7), &result);
    EXPECT_EQ(result.res_type, RES_ERROR);
    EXPECT_EQ(result.err.code, 19);
    EXPECT_EQ(result.err.sys_errno, 13);
    EXPECT_STREQ(result.err.message, "Trayd: text: 7");

    EXPECT_EQ(reply(result, RES_FAX_INFO), &result);
    EXPECT_EQ(result.res_type, RES_FAX_INFO);
    EXPECT_EQ(result.info, nullptr);
}

TEST(Replies, CutNamesThatDoNotFit)
{
    static in_res_t result;
    const std::string name(65536, '\xe9');
    error_reply(result, IE_INVALID, 0, "Trayd: Invalid user name: [%s].", name.c_str());
    EXPECT_EQ(result.err.message, ("Trayd: Invalid user name: [" + name).substr(0, 2047));
    error_reply(result, IE_INVALID, 0, "Trayd: Invalid user name: [%s].", shown(nullptr));
    EXPECT_STREQ(result.err.message, "Trayd: Invalid user name: [(null)].");
}

}  // namespace faxtray
