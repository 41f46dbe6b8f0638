// What the client does without a server.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <clocale>
#include <filesystem>

#include "client/commands.h"
#include "client/fax_file.h"
#include "client/output.h"
#include "client/password.h"
#include "support/capture.h"
#include "support/temp_dir.h"

namespace faxtray {

TEST(Client, StrangersTextDoesNotSteerTheTerminal)
{
    const std::string before = setlocale(LC_CTYPE, nullptr);
    ASSERT_TRUE(setlocale(LC_CTYPE, "C.UTF-8"));
    struct {
        std::string text, shown;
    } rows[] = {
        {"+49 30 1234", "+49 30 1234"},
        {"\x1B[2Jgone", "\\x1B[2Jgone"},
        {"two\nlines\t", "two\\x0Alines\\x09"},
        {"b\xC3\xBCro", "b\xC3\xBCro"},
        {"b\xFCro", "b\\xFCro"},
        {"\xC2\x9B"
         "2J",
         "\\xC2\\x9B2J"},  // the one-character form of ESC [
        {"cut \xC3", "cut \\xC3"},
        {"a\\x41", "a\\\\x41"},
        {std::string("nul\0!", 5), "nul\\x00!"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(printable(row.text), row.shown);
    setlocale(LC_CTYPE, before.c_str());
}

TEST(Client, FaxNamesStayInTheirDirectory)
{
    const std::string too_long(256, 'x');
    for (const char *name : {"", ".", "..", ".hidden", "../up", "/etc/passwd", "a/b", "-o", "line\nend"})
        EXPECT_EQ(file_name_for({7, name, {}, {}, {}}), "fax-7") << name;
    EXPECT_EQ(file_name_for({7, too_long, {}, {}, {}}), "fax-7");
    for (const char *name : {"f0001", "a b", "b\xFCro", "x.-"})
        EXPECT_EQ(file_name_for({7, name, {}, {}, {}}), name);
}

TEST(Client, FindsAnInboxByDescriptionOrHandle)
{
    std::vector<incoming_inbox> inboxes = {
        {"Front Desk", "1a2b"}, {"cafe", "77"}, {"Orders.", "99"}, {"Other", "cafe"}};
    EXPECT_EQ(handle_of(inboxes, "Front Desk"), "1a2b");
    EXPECT_EQ(handle_of(inboxes, "frontdesk"), "1a2b");
    EXPECT_EQ(handle_of(inboxes, "1a2b"), "1a2b");
    EXPECT_EQ(handle_of(inboxes, "cafe"), "77");  // descriptions first
    EXPECT_EQ(handle_of(inboxes, "Orders."), "99");
    EXPECT_EQ(handle_of(inboxes, "1A2B"), "");  // handles are exact
    EXPECT_EQ(handle_of(inboxes, ""), "");
    EXPECT_EQ(comma_separated(" a b, ,c ,\td,"), (std::vector<std::string>{"a b", "c", "d"}));
    EXPECT_TRUE(comma_separated("").empty());
}

TEST(Client, TellsTheCureForWhatTheServerRefused)
{
    client_failure no_user = {client_failure::SERVER, 11, 0, "Trayd: Invalid user name: [x]."};
    EXPECT_NE(cure_for(no_user).find("-u"), std::string::npos);
    client_failure no_fax = {client_failure::SERVER, 11, 0, "Trayd: Invalid fax id: 5"};
    EXPECT_NE(cure_for(no_fax).find("list again"), std::string::npos);
    EXPECT_EQ(cure_for({client_failure::SERVER, 99, 0, "news"}), "");
}

TEST(Client, PasswordsComeFromTheFirstLineOfAFile)
{
    temp_dir dir;
    capture_stderr err;
    struct {
        std::string content, hash;
        bool ok;
    } rows[] = {{"halyard\n", "2fc7b405", true},
                {"halyard", "2fc7b405", true},
                {"halyard\r\nmore\n", "2fc7b405", true},
                {"", "", true},
                {"two words\n", "", false},
                {std::string(5000, 'x'), "", false}};
    for (const auto &row : rows) {
        std::string path = dir.write("pw", row.content), password, hash;
        ASSERT_EQ(chmod(path.c_str(), 0600), 0);
        ASSERT_TRUE(read_password_file(path, &password));
        EXPECT_EQ(hash_password(password, &hash), row.ok) << row.content;
        EXPECT_EQ(hash, row.hash);
    }
    std::string password;
    ASSERT_EQ(chmod((dir / "pw").c_str(), 0644), 0);
    EXPECT_TRUE(read_password_file(dir / "pw", &password));
    EXPECT_FALSE(read_password_file(dir / "none", &password));
    std::string told = err.text();
    EXPECT_NE(told.find("chmod 600"), std::string::npos);
    EXPECT_NE(told.find("No such file"), std::string::npos);
}

static std::vector<std::string> names_in(const temp_dir &dir)
{
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(dir.path()))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(Client, AFaxIsOnDiskWholeOrNotAtAll)
{
    temp_dir dir;
    capture_stderr err;
    const std::string target = dir / "fax";
    {
        fax_file dropped;
        ASSERT_TRUE(dropped.begin(target, false));
        ASSERT_TRUE(dropped.write("half", 4));
        EXPECT_EQ(names_in(dir).size(), 1u);
    }
    EXPECT_TRUE(names_in(dir).empty());

    fax_file first, late;
    ASSERT_TRUE(first.begin(target, false));
    ASSERT_TRUE(late.begin(target, false));
    ASSERT_TRUE(first.write("first", 5) && first.keep());
    ASSERT_TRUE(late.write("late", 4));
    EXPECT_FALSE(late.keep());  // somebody was faster
    EXPECT_EQ(read_file(target), "first");

    EXPECT_FALSE(fax_file().begin(target, false));
    fax_file forced;
    ASSERT_TRUE(forced.begin(target, true));
    ASSERT_TRUE(forced.write("forced", 6));
    EXPECT_EQ(read_file(target), "first");
    ASSERT_TRUE(forced.keep());
    EXPECT_EQ(read_file(target), "forced");

    EXPECT_FALSE(fax_file().begin(dir.path(), true));  // a directory is not replaced
    EXPECT_FALSE(fax_file().begin(dir / "none/fax", false));
}

}  // namespace faxtray
