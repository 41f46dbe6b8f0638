// The files in examples/site are what administrators copy, so they must say what their comments say.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "config/modem_list_file.h"
#include "config/user_list_file.h"
#include "support/capture.h"
#include "support/temp_dir.h"
#include "util/crc.h"

namespace faxtray {

static const std::string site = TEST_DATA "/../../examples/site/";

static std::map<std::string, av_list_ptr> entries(av_list_t *(*get)(const char *))
{
    std::map<std::string, av_list_ptr> all;
    while (av_list_ptr entry{get(nullptr)}) {
        std::string key = entry->key;
        all[key] = std::move(entry);
    }
    return all;
}

static std::string value(const av_list_ptr &entry, const char *attr)
{
    const char *text = entry ? av_getv(entry.get(), attr) : nullptr;
    return text ? text : "(none)";
}

TEST(SampleSite, UserListSaysWhatItsCommentsSay)
{
    capture_stderr messages;
    ASSERT_EQ(ui_open((site + "USER_LIST.info").c_str(), stderr), 1);
    auto users = entries(ui_get);
    av_list_ptr admin(ui_get("admin"));
    ui_close();
    EXPECT_EQ(messages.text(), "");

    std::map<std::string, const char *> words = {{"anna", "mainsail"},
                                                 {"bela", "halyard"},
                                                 {"desk", "lantern"},
                                                 {"carl", "spinnaker"},
                                                 {"admin", "capstan"}};
    for (const auto &[name, word] : words)
        EXPECT_EQ(value(users[name], "password"), passwd(word)) << name;
    EXPECT_EQ(value(users["anna"], "delivery_method"), "faxtray");
    EXPECT_EQ(value(users["anna"], "when_to_notify"), "fax_incoming,fax_failures");
    EXPECT_EQ(value(users["desk"], "forwarder"), "General Incoming");
    EXPECT_EQ(value(users["sales"], "group_gui"), "Sales (everybody)");
    EXPECT_EQ(value(users["sales"], "delivery_method"), "");
    EXPECT_EQ(value(admin, "admin_notify_level"), "error");
    EXPECT_EQ(value(admin, "delivery_method"), "");
}

TEST(SampleSite, EachLineHasItsIncomingInboxBelowTheInstallation)
{
    scoped_env home("ONDRIXHOME", "/opt/fax");
    capture_stderr messages;
    ASSERT_EQ(mi_open((site + "MODEMS.info").c_str(), stderr), 1);
    auto lines = entries(mi_get);
    mi_close();
    EXPECT_EQ(messages.text(), "");
    EXPECT_EQ(value(lines["ttyS0"], "incoming_dir"), "/opt/fax/incoming");
    EXPECT_EQ(value(lines["ttyS0"], "incoming_gui"), "General Incoming");
    EXPECT_EQ(value(lines["ttyS1"], "incoming_dir"), "/opt/fax/incoming_orders");
    EXPECT_EQ(value(lines["ttyS1"], "incoming_gui"), "Orders");
}

}  // namespace faxtray
