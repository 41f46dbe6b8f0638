// The files in examples/site are what administrators copy, so they must say what their comments say; what
// else they say stands in data/users and data/modems.
#include <gtest/gtest.h>

#include "config/user_list_file.h"
#include "util/short_hash.h"

namespace faxtray {

TEST(SampleSite, PasswordsAreTheWordsInTheComments)
{
    ASSERT_EQ(ui_open(TEST_DATA "/../../examples/site/USER_LIST.info", nullptr), 1);
    for (auto [name, word] : {std::pair("anna", "mainsail"),
                              {"bela", "halyard"},
                              {"desk", "lantern"},
                              {"carl", "spinnaker"},
                              {"admin", "capstan"}})
        EXPECT_STREQ(av_getv(av_list_ptr(ui_get(name)).get(), "password"), passwd(word)) << name;
    ui_close();
}

}  // namespace faxtray
