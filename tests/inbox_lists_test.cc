#include "inbox/inbox_lists.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "inbox/inbox_index.h"
#include "support/capture.h"
#include "support/temp_dir.h"
#include "util/short_hash.h"

namespace faxtray {

namespace {

// A site of its own: inboxes below "spool", two incoming directories, and lists loaded from its files.
struct InboxLists : testing::Test {
    InboxLists()
    {
        for (const char *folder : {"spool", "in1", "in2"})
            mkdir((dir / folder).c_str(), 0755);
        write_modems("[a]\nincoming_dir = in1\nincoming_gui = First\n");
    }
    ~InboxLists() override
    {
        dump_list(&nodes);
        dump_list(&lines);
        free_recipients(&list.recipients);
        Forwarder.clear();
    }

    // Sections of the two files. Each edit is a second later than the last.
    void write_users(const std::string &sections) const
    {
        edit("USER_LIST.info", "[default]\ndelivery_dir_root = " + dir / "spool\n" + sections);
    }
    void write_modems(const std::string &sections) const
    {
        edit("MODEMS.info", "[default]\nincoming_root = " + dir.path() + "\n" + sections);
    }
    void edit(const char *file, const std::string &content) const
    {
        static time_t clock = 1000000000;  // staleness is the process's memory, so no site may be older
        set_mtime(dir.write(file, content), ++clock);
    }
    int update()
    {
        return update_lists(&nodes, &lines, &list, (dir / "USER_LIST.info").c_str(),
                            (dir / "MODEMS.info").c_str());
    }

    // Users as "name/directory", then incoming inboxes as "directory=description".
    std::string inboxes() const
    {
        std::string all;
        for (const user_node_t *node = nodes.head; node; node = node->next)
            all.append(inbox_name(node)).append(strrchr(node->inbox, '/')).append(" ");
        for (const user_node_t *node = lines.head; node; node = node->next)
            all.append(strrchr(node->inbox, '/') + 1).append("=").append(node->description).append(" ");
        return all;
    }
    user_node_t *node(const char *name) const { return get_user_node(&nodes, name); }

    temp_dir dir;
    inbox_list_t nodes, lines;
    user_list_t list;
};

}  // namespace

TEST_F(InboxLists, ReloadRenewsOnlyChangedUsers)
{
    write_users("[same]\n[changed]\n[moved]\n[gone]\n");
    update();
    const user_node_t *same = node("same");
    load_inbox(node("same"));
    load_inbox(node("changed"));
    write_users("[changed]\nhuman_name = New\n[same]\n[moved]\ndelivery_method = exec\n");
    ASSERT_EQ(update(), 1);
    EXPECT_EQ(inboxes(), "admin/admin changed/changed gone/gone same/same in1=First ");
    EXPECT_TRUE(node("same") == same && same->index && !node("changed")->index);
    EXPECT_FALSE(list.users.get("gone"));  // its node stays until the daemon ends

    // Either file's change reloads both; incoming nodes are replaced.
    load_inbox(lines.head);
    write_modems("[a]\nincoming_dir = in1\n");
    ASSERT_EQ(update(), 1);
    EXPECT_TRUE(!lines.head->index && node("same") == same);

    // The list's check value changes with any entry, also where no recipient did.
    u_int before = list.check_value;
    write_users("[same]\npassword = 1\n");
    ASSERT_EQ(update(), 1);
    EXPECT_NE(list.check_value, before);

    // Nor does it stay when a user becomes a group, though both entries have the same characters.
    write_users("[team]\nfax_forwarding = y\npuorg = a\n");
    ASSERT_EQ(update(), 1);
    before = list.check_value;
    write_users("[team]\nfax_forwarding = y\ngroup = a\n");
    ASSERT_EQ(update(), 1);
    EXPECT_NE(list.check_value, before);
}

}  // namespace faxtray
