#include "config/modem_list_file.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/capture.h"

namespace faxtray {

TEST(ModemListFile, TakesTheHomeAsRootAndSaysWhatItMisses)
{
    temp_dir dir;
    scoped_env nowhere("ONDRIXHOME", (dir / "nowhere").c_str());
    capture_stderr err;
    ASSERT_EQ(1, mi_open(nullptr, stderr));
    EXPECT_EQ(2, mi_error());
    EXPECT_EQ(dir / "nowhere/incoming", av_getv(av_list_ptr(mi_get("default")).get(), "incoming_dir"));
    EXPECT_EQ(nullptr, mi_get(nullptr));
    EXPECT_EQ(0, mi_stale(nullptr));
    EXPECT_EQ(2, mi_error());

    std::string path =
        dir.write("M", "[default]\n\tusage =\n[ttyA]\n\tusage =\n[ttyD]\n\tincoming_dir = ../../../../..\n");
    set_mtime(path, 1000);
    ASSERT_EQ(1, mi_open(path.c_str(), stderr));
    EXPECT_EQ(0, mi_stale(path.c_str()));
    EXPECT_EQ(nullptr, mi_get("ttya"));
    EXPECT_EQ(0, mi_error());
    EXPECT_STREQ("ondrix", av_getv(av_list_ptr(mi_get("default")).get(), "usage"));
    EXPECT_STREQ("", av_getv(av_list_ptr(mi_get("ttyA")).get(), "usage"));
    EXPECT_EQ(nullptr, mi_get("ttyD"));
    EXPECT_EQ(1, mi_error());
    set_mtime(path, 1001);
    EXPECT_EQ(1, mi_stale(path.c_str()));

    // The limit is on the root and "./incoming", without the "/" between; a longer path then fails by itself.
    for (size_t root : {4085, 4086}) {
        scoped_env home("ONDRIXHOME", ("/" + std::string(root, 'r')).c_str());
        EXPECT_EQ(1, mi_open(path.c_str(), stderr));
        EXPECT_EQ(0, mi_error());
    }
    mi_close();
    EXPECT_EQ("mi_open: Can't find default file: [MODEMS.info].\n"
              "_mi_get: Modem info file not open.\n"
              "_mi_fix: Warning: null or missing usage value.\n"
              "_mi_fix: Can't create full path to incoming directory for device [ttyD].\n"
              "_mi_get: Internal failure: _mi_fix.\n"
              "_mi_fix: Can't create full path to incoming directory for device [default].\n"
              "mi_open: Internal failure: _mi_fix.\n"
              "_mi_fix: Path length exceeds MAXPATHLEN of 4096 for device [default].\n"
              "mi_open: Internal failure: _mi_fix.\n",
              err.text());
}

}  // namespace faxtray
