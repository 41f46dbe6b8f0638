#include "util/paths.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "support/temp_dir.h"

namespace faxtray {

static const std::string too_long(MAXPATHLEN, 'x');

TEST(Paths, CanonicalPathsAreExactlyThoseThatMkpathLeavesAlone)
{
    std::mt19937 random(1);
    const std::string characters = "//..a \"\t";
    int canonical = 0;
    for (int i = 0; i < 20000; i++) {
        std::string path = i % 4 ? "/" : "";
        for (unsigned n = random() % 8; n > 0; n--)
            path += characters[random() % (i % 3 ? 5 : characters.size())];
        const c_string made = mkpath(path.c_str());
        const bool unchanged = made && made.get() == path;
        ASSERT_EQ(is_canonical_path(path.c_str()), unchanged) << "[" << path << "]";
        canonical += unchanged;
    }
    EXPECT_GT(canonical, 1000);
}

TEST(Paths, TheTemporaryDirectoryIsTmpUnlessOneThatFitsIsSet)
{
    for (auto [set, used] :
         {std::pair("/var/tmp", "/var/tmp"), {nullptr, "/tmp"}, {too_long.c_str(), "/tmp"}}) {
        scoped_env env("ONDRIXTMP", set);
        EXPECT_STREQ(get_temp_dir(), used);
    }
}

}  // namespace faxtray
