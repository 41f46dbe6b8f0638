// The delivery root: made at the first start, found at later ones.
#include "daemon/inbox_root.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "support/capture.h"

namespace faxtray {

TEST(InboxRoot, IsMadeOnceAndFoundAgainOrSaysWhyNot)
{
    const temp_dir dir;
    const std::string file = dir.write("file", ""), fresh = dir / "a/../inboxes/", orphan = dir / "no/parent";
    const struct {
        const char *key;   // of the entry that has the root
        std::string root;  // "": no such value
        int made;
        std::string said;
    } rows[] = {
        {"default", fresh, ROOT_MADE, ""},
        {"default", fresh, ROOT_EXISTS, ""},
        {"Default", fresh, ROOT_MISSING, "Missing or invalid \"default\" metauser.\n"},
        {"default", "", ROOT_MISSING, "Missing or invalid default value: [(null)].\n"},
        {"default", "/a b", ROOT_MISSING, "mkpath failed: Can't create inbox root.\n"},
        {"default", orphan, ROOT_MISSING,
         "mkpath failed: Can't create inbox root: No such file or directory.\n"},
        {"default", file, ROOT_MISSING, "Inbox root is not a directory: [" + file + "].\n"},
    };
    const mode_t mask = umask(022);
    for (const auto &row : rows) {
        av_list_ptr metausers(av_new("admin"));
        metausers->next = av_new(row.key);
        if (!row.root.empty())
            av_put(metausers->next, "delivery_dir_root", row.root.c_str());
        capture_stderr err;
        EXPECT_EQ(mk_inbox_root(metausers.get()), row.made) << row.said;
        EXPECT_EQ(err.text(), row.said.empty() ? "" : "mk_inbox_root: " + row.said);
    }
    umask(mask);
    struct stat st;
    ASSERT_EQ(stat((dir / "inboxes").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode, S_IFDIR | 0755u);
}

}  // namespace faxtray
