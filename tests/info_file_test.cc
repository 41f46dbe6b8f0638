#include "config/info_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>

#include "config/info_lines.h"
#include "config/munged_name.h"
#include "support/capture.h"

namespace faxtray {

// An open info file; its messages go to standard error.
struct open_info {
    explicit open_info(const std::string &path) : file(info_open(path.c_str(), &defaults, &mtime, stderr)) {}
    ~open_info() { info_close(&file, &defaults, &none); }

    av_list_t *defaults = nullptr, *none = nullptr;
    struct timespec mtime;
    FILE *file;
};

// The next section or that of `key`, as one line: "key: a=b c=d".
static std::string section(const open_info &info, const char *key = nullptr, key_compare cmp = strcmp)
{
    av_list_ptr list(info_get(info.file, info.defaults, cmp, key));
    if (!list)
        return "none";
    std::string text = list->key + std::string(":");
    for (const av_node_t *node = list->nodes; node; node = node->next)
        text += std::string(" ") + node->attr + "=" + node->value;
    return text;
}

// What the reference files are too narrow for.
TEST(InfoFile, CutsLongValues)
{
    capture_stderr quiet;
    const std::string whole(511, 'x'), written(508, 'y');
    const std::string escaped = std::string(1, ' ') + written.substr(3) + "\"\"";
    EXPECT_EQ(whole, info_parse_value((whole + "x").c_str()));
    EXPECT_EQ(whole.substr(1) + "\\", info_parse_value((whole.substr(1) + "\\q").c_str()));
    EXPECT_EQ(written, info_unparse_value((written + "y").c_str()));
    // An escape may pass the limit by one.
    EXPECT_EQ(std::string("\" ") + written.substr(3) + "\\\"\"", info_unparse_value(escaped.c_str()));
}

TEST(InfoFile, FindsSectionsInAnyOrderAndStripsTheirDefaults)
{
    open_info info(TEST_DATA "/info/defaults.info");
    // After a look-up the position is after the section that was found.
    EXPECT_EQ("john.smith: a=site b=built in", section(info, "John Smith", munged_strcmp));
    EXPECT_EQ("Mary O'Neil: a=mary b=site z=1", section(info, "mary oneil", munged_strcmp));
    EXPECT_EQ("default: a=site b=site", section(info, ""));
    EXPECT_EQ("none", section(info, "mary oneil"));

    av_list_ptr list(info_get(info.file, info.defaults, strcmp, "Mary O'Neil"));
    int merged_check = list->check_value;
    ASSERT_EQ(list.get(), info_strip(list.get(), info.defaults));
    EXPECT_STREQ("z", list->nodes->next->attr);
    EXPECT_EQ(list.get(), info_merge(list.get(), info.defaults));
    EXPECT_EQ(merged_check, list->check_value);
}

TEST(InfoFile, NoticesAnEditWithinOneSecond)
{
    temp_dir dir;
    const std::string path = dir.write("users.info", "");
    const struct timespec times[2] = {{1000, 5}, {1000, 5}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
    for (auto [sec, nsec, stale] :
         {std::tuple(1000, 5, 0), {1000, 4, 1}, {1000, 6, 0}, {999, 9, 1}, {1001, 0, 0}})
        EXPECT_EQ(stale, info_stale({sec, nsec}, path.c_str())) << sec << "." << nsec;
}

// Damaged files give what can be read of them.
TEST(InfoFile, SurvivesDamage)
{
    using std::string_literals::operator""s;
    const std::string line(8318, 'v');
    const std::pair<std::string, std::string> rows[] = {
        {"[a]\r\n\tx = 1\r\n\ty = \"2\"\r\n", "a: x=1 y=2"},
        {"[a]\n\tx = 1\rtail\n", "a: x=1"},
        {"[a]\n\tx = 1\0tail\n\ty = 2\n"s, "a: x=1 y=2"},
        {"\0[a]\n[b]\nx = 1"s, "b: x=1"},
        {"[__a]\nx = "s + line + "\ny = 2\n", "__a: vvvv= x="s + line.substr(0, 8191) + " y=2"},
        {"[a]\n"s + std::string(70, 'n') + " = long name\n", "a: "s + std::string(63, 'n') + "=long name"},
        {"["s + std::string(9000, 'k') + "]\nx = 1\n", "none"},
        {std::string(10 << 20, '\0'), "none"},
        {"[a]\n"s + std::string(10 << 20, '['), "a:"},
    };
    temp_dir dir;
    capture_stderr err;
    const std::string pipe = dir / "pipe";
    EXPECT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(open_info(pipe).file, nullptr);
    for (const auto &[content, first] : rows) {
        open_info info(dir.write("damaged.info", content));
        EXPECT_EQ(first, section(info)) << content.substr(0, 40);
    }

    // A hundred thousand attributes in one section, backwards, and the last of them twice.
    std::string content = "[a]\n";
    for (int i = 200000; i > 100000; i--)
        content.append("x").append(std::to_string(i)).append(" = 1\n");
    open_info info(dir.write("many.info", content + "x200000 = 2\n"));
    av_list_ptr list(info_get(info.file, nullptr, strcmp, "a"));
    ASSERT_TRUE(list);
    EXPECT_STREQ("x100001", list->nodes->attr);
    EXPECT_STREQ("2", av_getv(list.get(), "x200000"));
    // Refused before it is opened, which could wait for ever.
    EXPECT_EQ(err.text().find("info_open: Can't open file [" + pipe + "]: Invalid argument.\n"), 0u);
}

}  // namespace faxtray
