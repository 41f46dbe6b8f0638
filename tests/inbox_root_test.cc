// The delivery root: made at the first start, found at later ones.
#include "daemon/inbox_root.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "support/capture.h"

namespace faxtray {

// Metausers whose entry `key` has that root, or none for null.
static av_list_ptr metausers(const char *key, const std::string *root)
{
    av_list_ptr table(av_new("admin"));
    table->next = av_new(key);
    if (root)
        av_put(table->next, "delivery_dir_root", root->c_str());
    return table;
}

static int make_root(const char *key, const std::string *root, std::string *said = nullptr)
{
    const av_list_ptr table = metausers(key, root);
    capture_stderr err;
    const int made = mk_inbox_root(table.get());
    if (said)
        *said = err.text();
    return made;
}

TEST(InboxRoot, IsMadeOnceAndFoundAgain)
{
    const temp_dir dir;
    const std::string root = dir / "a/../inboxes/";
    const mode_t mask = umask(022);
    EXPECT_EQ(make_root("default", &root), ROOT_MADE);
    umask(mask);
    struct stat st;
    ASSERT_EQ(stat((dir / "inboxes").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode, S_IFDIR | 0755u);
    EXPECT_EQ(make_root("default", &root), ROOT_EXISTS);
}

TEST(InboxRoot, SaysWhyThereIsNone)
{
    const temp_dir dir;
    const std::string file = dir.write("file", ""), orphan = dir / "no/parent", empty, blank = "/a b";
    static const std::string wrong = "mk_inbox_root: ";
    const struct {
        const char *key;
        const std::string *root;
        std::string said;
    } rows[] = {
        {"Default", &file, "Missing or invalid \"default\" metauser.\n"},
        {"default", nullptr, "Missing or invalid default value: [(null)].\n"},
        {"default", &empty, "Missing or invalid default value: [].\n"},
        {"default", &blank, "mkpath failed: Can't create inbox root.\n"},
        {"default", &orphan, "mkpath failed: Can't create inbox root: No such file or directory.\n"},
        {"default", &file, "Inbox root is not a directory: [" + file + "].\n"},
    };
    for (const auto &row : rows) {
        std::string said;
        EXPECT_EQ(make_root(row.key, row.root, &said), ROOT_MISSING);
        EXPECT_EQ(said, wrong + row.said);
    }
}

}  // namespace faxtray
