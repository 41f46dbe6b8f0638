// What a crash may leave in a Maildir, and what no scenario can bring about.
#include "client/maildir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/capture.h"
#include "support/daemon.h"

namespace faxtray {

namespace fs = std::filesystem;

static const std::string one = "00000000-0000-5000-8000-000000000001",
                         two = "00000000-0000-5000-8000-000000000002";

static bool put(maildir *box, const std::string &id, const char *text)
{
    FILE *message = box->begin(id, 7);
    return message && fputs(text, message) >= 0 && box->deliver();
}

TEST(Maildir, GoesOnWhereACrashEndedIt)
{
    temp_dir dir;
    const std::string path = dir / "mail", tmp = path + "/tmp/", in_new = path + "/new/";
    {
        maildir box;
        ASSERT_TRUE(box.open(path) && put(&box, one, "one") && box.finish());
        EXPECT_TRUE(box.has(one) && !box.has(two));
        ASSERT_TRUE(box.begin(two, 8));  // given up
    }
    EXPECT_EQ(names_in(tmp), "");
    // As after a crash: the first is in the record and waits for its name, the second was cut off, as was its
    // line.
    fs::rename(in_new + "7." + one + ".faxtray", tmp + "7." + one + ".faxtray");
    dir.write("mail/tmp/8." + two + ".faxtray", "tw");
    dir.write("mail/tmp/1.theirs.host", "another program's");
    dir.write("mail/faxtray-delivered", one + "\n" + two.substr(0, 9));
    maildir box;
    ASSERT_TRUE(box.open(path));
    EXPECT_EQ(names_in(tmp), "1.theirs.host");
    EXPECT_EQ(read_file(in_new + "7." + one + ".faxtray"), "one");
    ASSERT_TRUE(!box.has(two) && put(&box, two, "two"));
    EXPECT_EQ(read_file(path + "/faxtray-delivered"), one + "\n" + two + "\n");
    EXPECT_EQ(read_file(in_new + "7." + two + ".faxtray"), "two");
}

// A message that may be in the record on the disk must not be removed, or it would never come.
TEST(Maildir, AMessageThatCannotGetItsNameWaits)
{
    temp_dir dir;
    capture_stderr err;
    const std::string path = dir / "mail";
    {
        maildir box;
        ASSERT_TRUE(box.open(path));
        fs::remove(path + "/new");
        EXPECT_FALSE(put(&box, one, "one"));
    }
    EXPECT_NE(err.text().find("/mail/new: No such file or directory"), std::string::npos);
    maildir box;
    ASSERT_TRUE(fs::create_directory(path + "/new") && box.open(path));
    EXPECT_EQ(read_file(path + "/new/7." + one + ".faxtray"), "one");
}

}  // namespace faxtray
