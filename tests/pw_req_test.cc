#include "protocol/pw_req.h"

#include <gtest/gtest.h>

namespace faxtray {

TEST(PwReq, CopyHasItsOwnStringsAndFillsNullOnesInTheSource)
{
    char user[] = "alice";
    pw_req_t source = {user, nullptr, nullptr, 3, 4};
    pw_req_ptr copy(copy_pw(&source));
    ASSERT_TRUE(copy);
    user[0] = 'A';
    EXPECT_STREQ(copy->user, "alice");
    EXPECT_STREQ(copy->password, "");
    EXPECT_STREQ(copy->reserved_str, "");
    EXPECT_STREQ(source.password, "");
    EXPECT_STREQ(source.reserved_str, "");
    EXPECT_EQ(copy->reserved_int, 3);
    EXPECT_EQ(copy->check_value, 4u);

    pw_req_ptr made(new_pw(nullptr, "p", "r", -1, 0xFFFFFFFF));
    ASSERT_TRUE(made);
    EXPECT_STREQ(made->user, "");
    EXPECT_STREQ(made->reserved_str, "r");
    EXPECT_EQ(made->check_value, 0xFFFFFFFF);
}

}  // namespace faxtray
