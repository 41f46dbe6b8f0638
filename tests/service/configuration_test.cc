// Files that change, vanish or are damaged under the running daemon.
#include <gtest/gtest.h>
#include <unistd.h>

#include "requests.h"
#include "support/daemon.h"

namespace faxtray {

TEST(Configuration, EditsTakeEffectAtTheNextRequest)
{
    site s;
    const std::string carol = identity("Carol");
    ASSERT_EQ(rmdir((s / "faxtrayes").c_str()), 0);  // as before the first start
    running_daemon daemon(s);
    EXPECT_EQ(call(2, index_of(bea)).code(), 0);
    s.add_fax(s.inbox("alsmith"), "fax");
    uint32_t id = list(al)[0].id;
    EXPECT_EQ(call(9, carol).code(), 11);

    s.write_users("[Carol]\n");
    EXPECT_EQ(call(9, carol).code(), 0);
    s.add_fax(s.inbox("carol"), "fax");
    uint32_t carols = list(carol)[0].id;
    EXPECT_EQ(list(al)[0].id, id) << "untouched entries keep their inbox as it is";

    s.write_users("[Al Smith]\nhuman_name = Albert\n");
    EXPECT_NE(list(al)[0].id, id) << "a changed entry loads its inbox anew";
    EXPECT_EQ(call(9, carol).code(), 11);
    s.write_users("[Carol]\n");
    EXPECT_EQ(list(carol)[0].id, carols) << "a user taken out and put back finds the inbox as it was";

    s.write_users("[Bea]\npassword = changed\n");
    EXPECT_EQ(call(9, bea).code(), 8);
    EXPECT_EQ(call(9, identity("Bea", "changed")).code(), 0);
}

TEST(Configuration, ModemListMayGoAndComeBack)
{
    site s;
    s.add_fax(s.incoming(), "fax");
    running_daemon daemon(s);
    ASSERT_EQ(list(bea, s.handle()).size(), 1u);

    ASSERT_EQ(unlink((s / "MODEMS.info").c_str()), 0);
    s.write_users();
    EXPECT_EQ(call(9, al).message(), "Trayd: Can't update user info.");
    EXPECT_EQ(call(9, al).code(), 0) << "nothing is stale now: the lists serve as they are";
    EXPECT_NE(call(13, index_of(bea, s.handle())).code(), 0);

    s.write_modems();
    EXPECT_EQ(list(bea, s.handle()).size(), 1u);
}

TEST(Configuration, CorruptFaxBlocksItsInboxUntilItIsGone)
{
    site s;
    s.add_faxes(s.inbox("alsmith"), 20);
    s.add(s.inbox("alsmith"), "corrupt", std::string("\xBA\xDB\xAD\x16\xFF\xFF\xFF\xFF", 8) + "#PAGES:1\n");
    running_daemon daemon(s);
    for (int n = 0; n < 5; n++)
        EXPECT_EQ(call(2, index_of(al)).message(), "Trayd: Can't update index.");
    EXPECT_EQ(call(2, index_of(bea)).code(), 0);

    ASSERT_EQ(unlink((s.inbox("alsmith") + "/corrupt").c_str()), 0);
    EXPECT_EQ(list(al).size(), 20u) << "each fax once, however often the scan failed";
}

}  // namespace faxtray
