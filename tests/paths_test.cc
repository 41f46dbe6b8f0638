#include "util/paths.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <random>
#include <string>

#include "support/capture.h"

namespace faxtray {

static std::string text_of(char *path)
{
    return c_string(path) ? path : "null";
}

static std::string here()
{
    char dir[MAXPATHLEN];
    return cv_getcwd(dir, sizeof dir);
}

TEST(Paths, MkpathMakesCanonicalPaths)
{
    std::string longest(MAXPATHLEN, 'x');
    longest[0] = '/';
    const std::pair<std::string, std::string> rows[] = {
        {"/a/./b/../c//d/", "/a/c/d"},
        {"/", "/"},
        {"//./", "/"},
        {"/a/../..", "null"},
        {"/.../..b/.c", "/.../..b/.c"},
        {" \t\"/a\" ", "/a"},
        {"/a b", "null"},
        {"/a\x7f", "null"},
        {"/gr\xfc\xdf", "/gr\xfc\xdf"},
        {"", here()},
        {"x/./y", here() + "/x/y"},
        {"x/..", here()},
        {longest, longest},
        {longest + "x", "null"},
        {longest.substr(1), "null"},  // too long once the current directory stands in front
    };
    for (const auto &[path, canonical] : rows) {
        EXPECT_EQ(text_of(mkpath(path.c_str())), canonical) << path;
        EXPECT_EQ(is_canonical_path(path.c_str()), path == canonical) << path;
    }
}

TEST(Paths, CanonicalPathsAreExactlyThoseThatMkpathLeavesAlone)
{
    std::mt19937 random(1);
    const std::string characters = "//..a \"\t";
    int canonical = 0;
    for (int i = 0; i < 20000; i++) {
        std::string path = i % 4 ? "/" : "";
        for (unsigned n = random() % 8; n > 0; n--)
            path += characters[random() % (i % 3 ? 5 : characters.size())];
        bool unchanged = text_of(mkpath(path.c_str())) == path;
        ASSERT_EQ(is_canonical_path(path.c_str()), unchanged) << "[" << path << "]";
        canonical += unchanged;
    }
    EXPECT_GT(canonical, 1000);
}

TEST(Paths, FailuresAreTraced)
{
    trace_on trace;
    EXPECT_EQ(mkpath("/.."), nullptr);
    EXPECT_EQ(mkpath("/a b"), nullptr);
    EXPECT_EQ(fix_path(std::string(MAXPATHLEN + 1, 'x').c_str()), nullptr);
    EXPECT_EQ(trace.text(), "mkpath: Invalid path: [/..].\nis_valid_path: Invalid path: [/a b].\n"
                            "mkpath: Invalid path: [/a b].\nfix_path: path too large\n");
}

TEST(Paths, FixPathDropsOnePrefix)
{
    const std::string rows[][2] = {{"./x", here() + "/x"},
                                   {"../x", here() + "/x"},
                                   {"././x", here() + "/./x"},
                                   {"/a/../b", "/a/../b"},
                                   {".//x", "/x"}};
    for (const auto &[path, fixed] : rows)
        EXPECT_EQ(text_of(fix_path(path.c_str())), fixed) << path;
}

TEST(Paths, FilesAreFoundAtHomeAndExecutablesOnThePath)
{
    temp_dir home, bin;
    scoped_env set_home("ONDRIXHOME", home.path().c_str());
    scoped_env set_path("PATH", ("/nonexistent::" + bin.path()).c_str());
    const std::string file = home.write("faxtray_file", ""), tool = bin.write("faxtray_tool", "");
    chmod(tool.c_str(), 0755);
    EXPECT_EQ(text_of(find_file("faxtray_file")), file);
    EXPECT_EQ(text_of(find_file("faxtray_tool")), "null");
    EXPECT_EQ(text_of(find_executable("faxtray_tool")), tool);
    EXPECT_EQ(text_of(find_executable("no_such_tool")), "null");
}

TEST(Paths, ComponentsAreCutInPlace)
{
    const std::string rows[][3] = {// path, last component, what is before it
                                   {"/a/b", "b", "/a"}, {"/a/b/", "b", "/a"}, {"/a", "a", "/"},
                                   {"/", "/", "/"},     {"a/b", "b", "a"},    {"a", "a", "."},
                                   {"a/", "a", "."},    {"", ".", "."}};
    for (const auto &[path, last, before] : rows) {
        std::string one = path, two = path;
        EXPECT_EQ(std::string(basename(one.data())), last) << path;
        EXPECT_EQ(std::string(dirname(two.data())), before) << path;
    }
}

}  // namespace faxtray
