#include "config/user_list_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "config/attributes.h"
#include "support/capture.h"

namespace faxtray {

static std::string get(const char *name, const char *attr)
{
    av_list_ptr entry(ui_get(name));
    const char *value = av_getv(entry.get(), attr);
    return value ? value : "none";
}

class UserListFile : public testing::Test {
protected:
    ~UserListFile() override { ui_close(); }
    temp_dir dir;
    std::string path = dir.write("USER_LIST.info", "[John Smith]\n\tdelivery_method = exec\n");
};

TEST_F(UserListFile, FindsUsersLoosely)
{
    ASSERT_EQ(1, ui_open(path.c_str(), nullptr));
    EXPECT_EQ(0, ui_error());
    for (const char *name : {"John Smith", "john.smith", "JohnSmith"})
        EXPECT_EQ("exec", get(name, "delivery_method")) << name;
    EXPECT_EQ(nullptr, ui_get("John Smith."));  // does not equal itself
    EXPECT_EQ(0, ui_error());
}

TEST_F(UserListFile, StandsBuiltInWithoutAFile)
{
    scoped_env home("ONDRIXHOME", (dir / "nowhere").c_str());
    capture_stderr err;
    ASSERT_EQ(1, ui_open("", stderr));
    EXPECT_EQ(2, ui_error());
    EXPECT_EQ("never", get("admin", "when_to_notify"));
    EXPECT_EQ(nullptr, ui_get("John Smith"));
    EXPECT_EQ(2, ui_error());
    EXPECT_EQ(0, ui_rewind());
    ASSERT_EQ(1, ui_open(dir.path().c_str(), stderr));  // a directory
    EXPECT_EQ(1, ui_error());
    EXPECT_EQ(nullptr, ui_get_no_defaults(nullptr));
    EXPECT_EQ(0, ui_last_update((dir / "none").c_str()));
    EXPECT_EQ(ENOENT, ui_error());
    EXPECT_EQ(0, ui_stale((dir / "none").c_str()));
    EXPECT_EQ(1, ui_error());
    EXPECT_EQ("ui_open: Can't find default file: [USER_LIST.info].\n"
              "_ui_get: User info file not open.\n"
              "ui_rewind: info_rewind failure.\n"
              "get_next_line: fgets failure: Is a directory.\n"
              "get_row: Problem reading info file.\n"
              "info_get: get_row failed.\n"
              "info_open: Can't setup user defaults: info_get failed.\n"
              "ui_open: info_open failed.\n"
              "_ui_get: User info file not open.\n"
              "ui_last_update: stat: No such file or directory\n"
              "info_stale: stat: No such file or directory\n"
              "ui_stale: info_stale(\"" +
                  (dir / "none") + "\") failed.\n",
              err.text());
}

TEST_F(UserListFile, IsStaleAfterAnEditAndWhenTheFileComesBack)
{
    scoped_env home("ONDRIXHOME", dir.path().c_str());
    set_mtime(path, 1000);
    ASSERT_EQ(1, ui_open(nullptr, nullptr));
    EXPECT_EQ(0, ui_stale(nullptr));
    EXPECT_EQ(1000, ui_last_update(nullptr));
    ui_close();
    EXPECT_EQ(0, ui_stale(nullptr));  // closing forgets nothing
    set_mtime(path, 1001);
    EXPECT_EQ(1, ui_stale(nullptr));

    ASSERT_EQ(0, unlink(path.c_str()));
    EXPECT_EQ(0, ui_stale(nullptr));
    EXPECT_EQ(2, ui_error());
    ASSERT_EQ(1, ui_open(nullptr, nullptr));
    dir.write("USER_LIST.info", "");
    set_mtime(path, 999);
    EXPECT_EQ(1, ui_stale(nullptr));
}

// Every name leads back to itself, every value to its attribute, in byte order, 28 in all.
TEST(Attributes, LooksUpNamesAndValuesExactly)
{
    int count = 0;
    for (int attr = 0; attr < 14; attr++) {
        const as_attr_t *entry = as_get_entry(attr);
        ASSERT_NE(nullptr, entry);
        EXPECT_EQ(attr, as_get_attr_handle(entry->name));
        const char *last = "";
        for (const as_value_t *row = entry->values; row && count < 28 && row->attr == attr; row++, count++) {
            EXPECT_LT(strcmp(last, row->value), 0);
            EXPECT_STREQ(row->value, as_get_value_string(attr, row->handle));
            EXPECT_EQ(row->handle, as_get_value_handle(attr, row->value));
            last = row->value;
        }
    }
    EXPECT_EQ(28, count);
    EXPECT_EQ(-1, as_get_attr_handle("Delivery_method"));
    EXPECT_EQ(-1, as_get_value_handle(AS_DELIVERY_METHOD, "Faxtray"));
    EXPECT_EQ(-1, as_get_value_handle(AS_DELIVERY_METHOD, nullptr));
    EXPECT_EQ(-1, as_get_value_handle(99, "x"));
    EXPECT_EQ(nullptr, as_get_value_string(AS_WHEN_TO_NOTIFY, 5));
    EXPECT_EQ(14, as_get_value_handle(AS_DELIVERY_METHOD, "exec"));
}

}  // namespace faxtray
