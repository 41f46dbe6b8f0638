#include "util/paths.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <random>
#include <string>

#include "support/capture.h"

namespace faxtray {

static std::string text_of(const c_string &path)
{
    return path ? path.get() : "null";
}

TEST(Paths, NoneIsLongerThanMaxpathlen)
{
    const std::string longest = "/" + std::string(MAXPATHLEN - 1, 'x');
    EXPECT_EQ(text_of(mkpath(longest.c_str())), longest);
    EXPECT_EQ(text_of(mkpath((longest + "x").c_str())), "null");
    EXPECT_EQ(text_of(mkpath(longest.c_str() + 1)), "null") << "with the current directory in front";
    trace_on trace;
    EXPECT_EQ(fix_path((longest + "x").c_str()), nullptr);
    EXPECT_EQ(trace.text(), "fix_path: path too large\n");
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

TEST(Paths, FilesAreFoundAtHomeAndExecutablesOnThePath)
{
    temp_dir home, bin;
    scoped_env set_home("ONDRIXHOME", home.path().c_str());
    scoped_env set_path("PATH", ("/nonexistent::" + bin.path()).c_str());
    const std::string file = home.write("faxtray_file", ""), tool = bin.write("faxtray_tool", "");
    chmod(tool.c_str(), 0755);
    EXPECT_EQ(text_of(find_file("faxtray_file")), file);
    EXPECT_EQ(text_of(find_executable("faxtray_tool")), tool);
    EXPECT_EQ(text_of(find_file("faxtray_tool")), "null");
    EXPECT_EQ(text_of(find_executable("no_such_tool")), "null");
}

}  // namespace faxtray
