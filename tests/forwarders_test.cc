#include "inbox/forwarders.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <utility>

#include "support/capture.h"

namespace faxtray {

using attrs_t = std::initializer_list<std::pair<const char *, const char *>>;

static av_list_ptr entry(const char *key, attrs_t attrs)
{
    av_list_ptr list(av_new(key));
    for (auto &[attr, value] : attrs)
        av_put(list.get(), attr, value);
    return list;
}

namespace {

// Three incoming inboxes, handles a1, b2 and c3, and who forwards for them.
struct Forwarders : testing::Test {
    Forwarders()
    {
        add("a1", "Alpha");
        add("b2", "Beta Line");
        add("c3", "Gamma");
        add("d4", nullptr);
    }
    ~Forwarders() override { free_user_list(&incoming_nodes); }

    void add(const char *handle, const char *description)
    {
        add_user_node(&incoming_nodes,
                      new_user_node("/in", pw_req_ptr(new_pw(handle, "", "", 0, 0)), description).release());
    }

    // What the user is assigned, as "names:handles", or "-" when it is no forwarder.
    std::string claim(const char *name, const char *claims, const char *method = "faxtray")
    {
        av_list_ptr user = entry(name, {{"delivery_method", method}, {"forwarder", claims}});
        EXPECT_EQ(update_forwarder(user.get(), &table, &incoming_nodes), 1) << name;
        const av_list_t *holder = table.get(name);
        const char *left = av_getv(user.get(), "forwarder");
        if (!holder)
            return left ? std::string("kept ") + left : "-";
        EXPECT_STREQ(av_getv(holder, "forwarder"), left);
        return std::string(left) + ":" + av_getv(holder, "forwarder_handle");
    }

    std::string check(const char *user, const char *inbox)
    {
        err_t error = {};
        if (is_forwarder(&table, user, inbox, &error))
            return "yes";
        EXPECT_EQ(error.sys_errno, 0);
        return std::to_string(error.code) + ": " + error.message;
    }

    inbox_list_t incoming_nodes;
    av_table_t table;
};

}  // namespace

TEST_F(Forwarders, FirstToClaimGetsTheInbox)
{
    trace_on trace;
    // Empty names are passed over; one that ends in a blank is nobody's.
    EXPECT_EQ(claim("zoe", "gamma,,nowhere, Beta.Line,Alpha ,Gamma"), "gamma, Beta.Line,Gamma:c3,b2,c3");
    EXPECT_EQ(claim("ann", "GAMMA,alpha"), "-");
    std::string text = trace.text();
    EXPECT_NE(text.find("update_forwarder: user \"zoe\" is DF for \"GAMMA\": user \"ann\" access denied.\n"),
              std::string::npos);
    EXPECT_NE(text.find("incoming inbox \"nowhere\" doesn't exist.\n"), std::string::npos);
    EXPECT_NE(text.find("update_forwarders: Forwarders:\n"), std::string::npos);
}

TEST_F(Forwarders, OnlyTheFirstForwarderGetsSeveral)
{
    struct {
        const char *user, *claims, *assigned;
    } rows[] = {
        {"one", "none", "-"},  // nobody is registered yet, so all claims are read
        {"two", "none,alpha,beta line", "alpha,beta line:a1,b2"},
        {"three", "gamma,alpha", "gamma:c3"},
        {"four", "none,gamma", "-"},
    };
    for (auto &row : rows)
        EXPECT_EQ(claim(row.user, row.claims), row.assigned) << row.user;
}

TEST_F(Forwarders, OnlyInboxUsersForward)
{
    trace_on trace;
    EXPECT_EQ(claim("mail", "alpha", "email"), "kept alpha");
    EXPECT_EQ(claim("both", "alpha", "faxtray,email"), "kept alpha");
    EXPECT_EQ(claim("none", ""), "kept ");
    EXPECT_EQ(trace.text().find("access denied"), std::string::npos);
    EXPECT_NE(
        trace.text().find("update_forwarder: user \"mail\" is not an inbox user: delivery will be handled by "
                          "other means.\n"),
        std::string::npos);
    EXPECT_FALSE(table.head());
}

TEST_F(Forwarders, ReportsAHolderWithoutInboxes)
{
    table.update(entry("void", {{"forwarder", ""}}));
    capture_stderr printed;
    EXPECT_EQ(claim("two", "alpha,gamma"), "alpha,gamma:a1,c3");  // no list was split, so both are read
    EXPECT_EQ(printed.text(), "update_forwarder: NULL forwarder value for DF: [void].\n"
                              "update_forwarder: NULL forwarder value for DF: [void].\n");
}

TEST_F(Forwarders, RightsAreCheckedByHandle)
{
    ASSERT_EQ(claim("zoe", "Alpha,Gamma"), "Alpha,Gamma:a1,c3");
    table.update(entry("void", {{"forwarder", "x"}}));
    const std::string wide(65536, 'z');
    struct {
        const char *user, *inbox, *answer;
    } rows[] = {
        {"zoe", nullptr, "yes"},
        {"Z.o e", "c3", "yes"},
        {"zoe", "a1", "yes"},
        {"zoe", "A1", "12: Trayd: User \"zoe\" is not DF for inbox: [A1]."},
        {"zoe", "b2", "12: Trayd: User \"zoe\" is not DF for inbox: [b2]."},
        {"zoe", "", "12: Trayd: User \"zoe\" is not DF for inbox: []."},
        {"zoe", "a1,c3", "5: Trayd: Invalid inbox: [a1,c3]."},
        {"zoe", "alpha", "5: Trayd: Invalid inbox: [alpha]."},
        {"ann", "a1", "12: Trayd: User \"ann\" is not designated forwarder."},
        {nullptr, "a1", "12: Trayd: User \"(null)\" is not designated forwarder."},
        {"void", "a1", "12: Trayd: User \"void\" is not designated forwarder."},
    };
    capture_stderr printed;
    for (auto &row : rows)
        EXPECT_EQ(check(row.user, row.inbox), row.answer);
    EXPECT_EQ(check(wide.c_str(), nullptr), ("12: Trayd: User \"" + wide).substr(0, 4 + 2047));
    EXPECT_EQ(printed.text(), "is_forwarder: NULL forwarder_handle value for DF: [void].\n");
}

TEST(Recipients, AreThoseWhoTakeForwardedFaxes)
{
    struct {
        const char *key;
        attrs_t attrs;
    } rows[] = {
        {"walter", {{"fax_forwarding", "true"}, {"human_name", "Walter W."}}},
        {"Ann", {{"fax_forwarding", "y"}}},
        {"sales", {{"fax_forwarding", "Yes"}, {"group", ""}, {"group_gui", "Sales"}, {"human_name", "x"}}},
        {"one", {{"fax_forwarding", "1"}}},
        {"no", {{"fax_forwarding", "no"}}},
        {"empty", {{"fax_forwarding", ""}}},
        {"absent", {}},
        {"Admin", {{"fax_forwarding", "T"}}},
        {"w.alter", {{"fax_forwarding", "T"}, {"human_name", "late"}}},
    };
    recipients_t recipients;
    capture_stderr printed;
    for (auto &row : rows)
        EXPECT_EQ(recips_list_update(&recipients, entry(row.key, row.attrs).get()), 1) << row.key;
    std::string all;
    for (const ui_entry_t *e = recipients.head; e; e = e->next)
        all.append(e->name).append("=").append(e->label).append(e->flag ? "! " : " ");
    EXPECT_EQ(all, "Ann= sales=Sales! walter=Walter W. ");
    EXPECT_EQ(printed.text(), "recips_list_update: Ignoring duplicate key: [w.alter].\n");
    free_recipients(&recipients);
    EXPECT_FALSE(recipients.head);
}

}  // namespace faxtray
