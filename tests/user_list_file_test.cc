#include "config/user_list_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "config/attributes.h"
#include "support/capture.h"

namespace faxtray {

class UserListFile : public testing::Test {
protected:
    ~UserListFile() override { ui_close(); }
    temp_dir dir;
    std::string path = dir.write("USER_LIST.info", "[John Smith]\n\tdelivery_method = exec\n");
};

TEST_F(UserListFile, StandsBuiltInWithoutAFile)
{
    scoped_env home("ONDRIXHOME", (dir / "nowhere").c_str());
    capture_stderr err;
    ASSERT_EQ(1, ui_open("", stderr));
    EXPECT_STREQ("never", av_getv(av_list_ptr(ui_get("admin")).get(), "when_to_notify"));
    EXPECT_EQ(nullptr, ui_get("John Smith"));
    EXPECT_EQ(2, ui_error());
    EXPECT_EQ("ui_open: Can't find default file: [USER_LIST.info].\n"
              "_ui_get: User info file not open.\n",
              err.text());
}

TEST_F(UserListFile, IsStaleAfterAnEditAndWhenTheFileComesBack)
{
    scoped_env home("ONDRIXHOME", dir.path().c_str());
    set_mtime(path, 1000);
    ASSERT_EQ(1, ui_open(nullptr, nullptr));
    EXPECT_EQ(0, ui_stale(nullptr));
    ui_close();  // forgets nothing
    set_mtime(path, 1001);
    EXPECT_EQ(1, ui_stale(nullptr));

    ASSERT_EQ(0, unlink(path.c_str()));
    ASSERT_EQ(1, ui_open(nullptr, nullptr));
    dir.write("USER_LIST.info", "");
    set_mtime(path, 999);
    EXPECT_EQ(1, ui_stale(nullptr));
}

// Every value leads back to itself, in byte order, 28 in all.
TEST(Attributes, LooksUpValuesExactly)
{
    int count = 0;
    for (int attr = 0; attr < 14; attr++) {
        const char *last = "";
        const as_value_t *row = as_get_entry(attr)->values;
        for (; row && count < 28 && row->attr == attr; last = row++->value, count++) {
            EXPECT_LT(strcmp(last, row->value), 0);
            EXPECT_EQ(row->handle, as_get_value_handle(attr, row->value));
        }
    }
    EXPECT_EQ(28, count);
    EXPECT_EQ(-1, as_get_value_handle(AS_DELIVERY_METHOD, "Faxtray"));
}

}  // namespace faxtray
