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
    EXPECT_STREQ(source.reserved_str, "");
    EXPECT_EQ(copy->check_value, 4u);
}

}  // namespace faxtray
