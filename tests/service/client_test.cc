// Our client library and the faxtray command against the real daemon.
#include "client/inbox_client.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/daemon.h"

namespace faxtray {

TEST(Client, ListsFetchesAndRemoves)
{
    site s;
    std::string big = s.add_fax(s.inbox("bea"), "big", 1'000'000), fetched;
    s.add_faxes(s.inbox("bea"), 250);
    s.add_fax(s.incoming(), "unrouted");
    running_daemon daemon(s);
    inbox_client client({"Bea", "2fc7b405", 0});
    ASSERT_TRUE(client.connect("localhost")) << client.failure().message;

    listing all;
    ASSERT_TRUE(client.list({}, &all));
    ASSERT_EQ(all.faxes.size(), 251u);
    auto take = [&](const char *bytes, size_t n) { return !fetched.append(bytes, n).empty(); };
    ASSERT_TRUE(client.fetch({}, all.faxes[0], take));
    EXPECT_TRUE(fetched == big);
    EXPECT_TRUE(client.commit_fax({}, all.faxes[0].id));

    EXPECT_FALSE(client.fetch({}, all.faxes[0], take));
    EXPECT_EQ(client.failure().code, 11);
    s.write_users("[Bea]\npassword = 2fc7b405\n");  // new ids, and no forwarder any more
    EXPECT_FALSE(client.commit_fax({}, all.faxes[1].id));
    EXPECT_EQ(client.failure().code, 11);
    EXPECT_TRUE(client.list({}, &all) && client.commit_index({}));
    EXPECT_EQ(all.faxes.size(), 250u);
    EXPECT_TRUE(client.list({}, &all));
    EXPECT_EQ(all.faxes.size(), 0u);
    EXPECT_FALSE(client.list(s.handle(), &all));
    EXPECT_EQ(client.failure().code, 12);

    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_FALSE(client.null_call());
    EXPECT_EQ(client.failure().kind, client_failure::TRANSPORT);
}

// Runs build/bin/faxtray, with no terminal to ask for passwords at.
static ended_t faxtray(const std::string &arguments)
{
    return run_shell("setsid -w " FAXTRAY " " + arguments + " </dev/null");
}

TEST(Command, DoesWhatItSaysAndTellsHowItWent)
{
    site s;
    s.add_faxes(s.inbox("alsmith"), 250);
    std::string last = s.add_fax(s.inbox("alsmith"), "last", 600'000);
    s.add_fax(s.incoming(), "unrouted");
    s.add(s.path(), "password", "halyard\n");
    s.add(s.path(), "wrong", "mainsail\n");
    running_daemon daemon(s);
    const std::string bea = "-u bea --password-file " + (s / "password") + " ", out = s / "tmp/out";

    auto faxes = nlohmann::json::parse(faxtray("-u al.smith --json list").output, nullptr, false);
    ASSERT_EQ(faxes.size(), 251u);
    EXPECT_EQ(faxes[250]["size"], last.size());
    const std::string id = faxes[250]["faxid"].dump();

    const struct {
        std::string arguments;
        int status;
        std::string told;  // a piece of what it prints
    } rows[] = {
        {"-u al.smith get " + id + " -o " + out, 0, out + "\n"},
        {"-u al.smith get " + id + " -o " + out, 4, out},  // stands there already
        {"-u al.smith get " + id + " -f -o " + out, 0, out + "\n"},
        {"-u al.smith rm " + id, 0, ""},
        {"-u al.smith commit", 2, "use --yes"},
        {"-u al.smith commit --yes", 0, "  f249\n"},
        {"-u al.smith list", 0, "no faxes\n"},
        {"-u al.smith commit --yes", 5, "the inbox is empty"},
        {"-u nobody list", 1, "Trayd: Invalid user name: [nobody]. (code 11)"},
        {"-u bea --password-file " + (s / "wrong") + " list", 1, "(code 8)"},
        {bea + "inboxes", 0, "Front Desk\n"},
        {bea + "recipients", 0, "Beatrice\n"},
        {bea + "--inbox 'front desk' commit --yes", 0, "  unrouted\n"},
        {"status", 0, "localhost"},
        {bea + "passwd", 0, "password = 2fc7b405\n"},
        {"-H nowhere.invalid status", 3, "nowhere.invalid"},
    };
    for (const auto &row : rows) {
        ended_t ended = faxtray(row.arguments);
        EXPECT_EQ(ended.status, row.status) << row.arguments << "\n" << ended.output;
        EXPECT_NE(ended.output.find(row.told), std::string::npos) << row.arguments << "\n" << ended.output;
    }
    EXPECT_TRUE(read_file(out) == last) << "not what stood on the disk";
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_EQ(faxtray("status").status, 3);
}

}  // namespace faxtray
