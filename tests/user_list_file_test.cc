#include "config/user_list_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/capture.h"
#include "util/short_hash.h"

namespace faxtray {

TEST(UserListFile, IsStaleAfterAnEditAndWhenTheFileComesBack)
{
    temp_dir dir;
    const std::string path = dir.write("USER_LIST.info", "[John Smith]\n\tdelivery_method = exec\n");
    scoped_env home("ONDRIXHOME", dir.path().c_str());
    set_mtime(path, 1000);
    ASSERT_EQ(1, ui_open(nullptr, nullptr));
    EXPECT_EQ(0, ui_stale(nullptr));
    ui_close();  // forgets nothing
    set_mtime(path, 1001);
    EXPECT_EQ(1, ui_stale(nullptr));

    ASSERT_EQ(0, unlink(path.c_str()));
    ASSERT_EQ(1, ui_open(nullptr, nullptr));
    EXPECT_STREQ("never", av_getv(av_list_ptr(ui_get("admin")).get(), "when_to_notify"));
    EXPECT_EQ(nullptr, ui_get("John Smith"));
    EXPECT_EQ(2, ui_error());
    dir.write("USER_LIST.info", "");
    set_mtime(path, 999);
    EXPECT_EQ(1, ui_stale(nullptr));
    ui_close();
}

// Administrators copy examples/site, so it must say what its comments say. The rest of it is in data/users.
TEST(UserListFile, SamplePasswordsAreTheWordsInTheComments)
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
