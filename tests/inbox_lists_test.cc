#include "inbox/inbox_lists.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "inbox/inbox_index.h"
#include "support/capture.h"
#include "support/temp_dir.h"
#include "util/crc.h"

namespace faxtray {

namespace {

// A site of its own: inboxes below "spool", two incoming directories, and lists loaded from its files.
class site_t {
public:
    site_t()
    {
        mkdir((dir / "spool").c_str(), 0755);
        mkdir((dir / "in1").c_str(), 0755);
        mkdir((dir / "in2").c_str(), 0755);
        modems("[a]\nincoming_dir = in1\nincoming_gui = First\n");
    }
    ~site_t()
    {
        dump_list(&nodes);
        dump_list(&lines);
        free_recipients(&list.recipients);
        Forwarder.clear();
    }

    // Sections of the user list. Each edit is a second later than the last.
    void user_list(const std::string &sections)
    {
        set_mtime(
            dir.write("USER_LIST.info", "[default]\ndelivery_dir_root = " + dir / "spool" + "\n" + sections),
            ++clock);
    }
    void modems(const std::string &sections)
    {
        set_mtime(dir.write("MODEMS.info", "[default]\nincoming_root = " + dir.path() + "\n" + sections),
                  ++clock);
    }

    int update()
    {
        return update_lists(&nodes, &lines, &list, (dir / "USER_LIST.info").c_str(),
                            (dir / "MODEMS.info").c_str());
    }

    std::string inboxes() const
    {
        std::string all;
        for (const user_node_t *node = nodes.head; node; node = node->next)
            all.append(inbox_name(node)).append(" ");
        return all;
    }
    // Incoming inboxes as "directory=description", in the order of their handles.
    std::string incoming_inboxes() const
    {
        std::string all;
        for (const user_node_t *node = lines.head; node; node = node->next)
            all.append(strrchr(node->inbox, '/') + 1)
                .append("=")
                .append(node->description ? node->description : "-")
                .append(" ");
        return all;
    }
    user_node_t *node(const char *name) const { return get_user_node(&nodes, name); }

    temp_dir dir;
    inbox_list_t nodes, lines;
    user_list_t list;
    static inline time_t clock = 1000000000;  // staleness is the process's memory, so no site may be older
};

}  // namespace

TEST(InboxLists, FirstLoadMakesWhatIsMissing)
{
    site_t site;
    site.user_list("[Zoe]\nhuman_name = Zoe Z.\npassword = 5f3a\n"
                   "[ann]\ndelivery_method = email\n"
                   "[Max Muster]\ndelivery_dir = mm\nfax_forwarding = no\n"
                   "[def ault]\n[ADMIN]\n");
    trace_on trace;
    ASSERT_EQ(site.update(), 1);
    EXPECT_EQ(site.inboxes(), "admin Max Muster Zoe ");
    EXPECT_EQ(site.node("zoe")->inbox, site.dir / "spool/zoe");
    EXPECT_STREQ(site.node("zoe")->identity->password, "5f3a");
    EXPECT_FALSE(site.node("zoe")->description);
    struct stat made;
    EXPECT_EQ(stat((site.dir / "spool/mm").c_str(), &made), 0);

    std::string entries;
    for (const av_list_t *entry = site.list.users.head(); entry; entry = entry->next)
        entries.append(entry->key).append(" ");
    EXPECT_EQ(entries, "admin Zoe ann Max Muster ");
    EXPECT_TRUE(site.list.metausers.get("default"));
    EXPECT_STREQ(av_getv(site.list.metausers.get("admin"), "when_to_notify"), "never");
    EXPECT_STREQ(site.list.recipients.head->name, "ann");
    EXPECT_STREQ(site.list.recipients.head->next->label, "Zoe Z.");
    EXPECT_FALSE(site.list.recipients.head->next->next);
    EXPECT_EQ(site.incoming_inboxes(), "in1=First ");
    EXPECT_STREQ(inbox_name(site.lines.head), passwd((site.dir / "in1").c_str()));

    EXPECT_EQ(site.update(), 1);
    EXPECT_NE(trace.text().find("update_lists: neither USER_LIST.info nor MODEMS.info is stale.\n"),
              std::string::npos);
}

TEST(InboxLists, ReloadRenewsOnlyChangedUsers)
{
    site_t site;
    site.user_list("[same]\n[changed]\n[moved]\n[gone]\n");
    site.update();
    const user_node_t *same = site.node("same"), *gone = site.node("gone");
    for (const char *name : {"same", "changed", "moved"})
        load_inbox(site.node(name));
    faxid_t first = newid();

    site.user_list("[changed]\nhuman_name = New\n[same]\n[moved]\ndelivery_method = exec\n");
    ASSERT_EQ(site.update(), 1);
    EXPECT_EQ(site.inboxes(), "admin changed gone same ");
    EXPECT_EQ(site.node("same"), same);
    EXPECT_TRUE(site.node("same")->index);
    EXPECT_FALSE(site.node("changed")->index);
    EXPECT_EQ(site.node("gone"), gone);  // until the daemon ends
    EXPECT_FALSE(site.list.users.get("gone"));
    EXPECT_EQ(newid(), first + 1);

    // Either file's change reloads both; incoming nodes are made anew.
    load_inbox(site.lines.head);
    site.modems("[a]\nincoming_dir = in1\n");
    ASSERT_EQ(site.update(), 1);
    EXPECT_FALSE(site.lines.head->index);
    EXPECT_EQ(site.node("same"), same);
}

TEST(InboxLists, CheckValueTellsListsApart)
{
    site_t site;
    u_int last = 0;
    for (const char *sections : {"[a]\n[b]\n", "[a]\n", "[a]\nhuman_name = A\n", "[a]\nhuman_name = B\n",
                                 "[a]\nfax_forwarding = no\n", "[a]\nforwarder = First\n"}) {
        site.user_list(sections);
        ASSERT_EQ(site.update(), 1);
        EXPECT_NE(site.list.check_value, 0u);
        EXPECT_NE(site.list.check_value, last) << sections;
        last = site.list.check_value;
    }
    site.user_list("[a]\nforwarder = First\n\n# the same list\n");
    site.update();
    EXPECT_EQ(site.list.check_value, last);
    EXPECT_TRUE(Forwarder.get("a"));
    EXPECT_STREQ(av_getv(Forwarder.get("a"), "forwarder_handle"), inbox_name(site.lines.head));
}

TEST(InboxLists, TtysThatShareADirectoryShareAnInbox)
{
    struct {
        const char *sections, *inboxes, *message;
    } rows[] = {
        {"[b]\nincoming_dir = in2\nincoming_gui = Two\n[c]\nincoming_dir = %s/in2\nincoming_gui = Late\n",
         "in2=Two ", ""},
        {"[b]\nincoming_dir = nowhere\n[c]\nincoming_dir = in1/../in2/.\nincoming_gui = Two\n", "in2=Two ",
         "load_incoming_list: Incoming directory [%s/nowhere] for tty [b] doesn't exist.\n"},
        {"", "", ""},
    };
    site_t site;
    site.user_list("");
    for (auto &row : rows) {
        std::string sections = row.sections, message = row.message;
        for (std::string *text : {&sections, &message})
            if (size_t at = text->find("%s"); at != std::string::npos)
                text->replace(at, 2, site.dir.path());
        site.modems(sections);
        capture_stderr printed;
        EXPECT_EQ(site.update(), 1) << sections;
        EXPECT_EQ(site.incoming_inboxes(), row.inboxes);
        EXPECT_EQ(printed.text(), message);
    }
}

TEST(InboxLists, AnInboxThatCannotBeUsedIsSkipped)
{
    site_t site;
    site.dir.write("spool/file", "");
    site.user_list("[file]\n[deep]\ndelivery_dir = no/such\n[good]\n");
    capture_stderr printed;
    trace_on trace;
    ASSERT_EQ(site.update(), 1);
    EXPECT_EQ(site.inboxes(), "admin good ");
    std::string output = printed.text();
    for (const std::string &message :
         {"create_user_node: Can't use directory [" + site.dir / "spool/file" + "]: Permission denied\n",
          "create_user_node: mkdir(\"" + site.dir / "spool/no/such" +
              "\",0777): No such file or directory\n"}) {
        EXPECT_NE(output.find(" WARNING:  " + message), std::string::npos) << output;
        EXPECT_NE(trace.text().find("faxtrayd: " + message), std::string::npos);
    }
}

TEST(InboxLists, MissingFiles)
{
    site_t site;
    capture_stderr printed;
    // Without a user list the built-in records serve, without a modem list nothing can be loaded.
    site.modems("[a]\nincoming_dir = in1\n");
    EXPECT_EQ(load_user_list(&site.list, (site.dir / "USER_LIST.info").c_str()), 1);
    EXPECT_TRUE(site.list.users.get("admin"));
    EXPECT_FALSE(site.list.users.head()->next);

    site.user_list("[zoe]\n");
    unlink((site.dir / "MODEMS.info").c_str());
    EXPECT_EQ(site.update(), 0);
    EXPECT_FALSE(site.lines.head);
    EXPECT_FALSE(site.nodes.head);
    EXPECT_TRUE(site.list.users.get("zoe"));
    EXPECT_EQ(site.update(), 1);  // nothing is stale
    site.modems("[a]\nincoming_dir = in1\n");
    EXPECT_EQ(site.update(), 1);
    EXPECT_TRUE(site.node("zoe"));
    std::string output = printed.text();
    EXPECT_NE(
        output.find("load_incoming_list: Can't load modem info file [" + site.dir / "MODEMS.info" + "].\n"),
        std::string::npos);
    EXPECT_NE(
        output.find("update_lists: Problem loading modem info file: [" + site.dir / "MODEMS.info" + "].\n"),
        std::string::npos);
}

}  // namespace faxtray
