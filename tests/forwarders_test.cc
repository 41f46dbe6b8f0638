#include "inbox/forwarders.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <utility>

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
        for (auto [handle, name] :
             attrs_t{{"a1", "Alpha"}, {"b2", "Beta Line"}, {"c3", "Gamma"}, {"d4", nullptr}}) {
            user_node_ptr node = new_user_node("/in", pw_req_ptr(new_pw(handle, "", "", 0, 0)), name);
            add_user_node(&incoming_nodes, node.release());
        }
    }
    ~Forwarders() override { free_user_list(&incoming_nodes); }

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

    inbox_list_t incoming_nodes;
    av_table_t table;
};

}  // namespace

TEST_F(Forwarders, FirstToClaimGetsTheInboxAndOnlyTheFirstSeveral)
{
    EXPECT_EQ(claim("mail", "alpha", "email"), "kept alpha");  // delivered by other means
    EXPECT_EQ(claim("one", "none"), "-");  // nobody is registered yet, so all claims are read
    // Empty names are passed over; one that ends in a blank is nobody's.
    EXPECT_EQ(claim("two", "none,alpha,,Beta.Line,Gamma ,"), "alpha,Beta.Line:a1,b2");
    EXPECT_EQ(claim("three", "none,gamma"), "-");  // later ones: at most the first of their list
    EXPECT_EQ(claim("four", "gamma,alpha"), "gamma:c3");
    EXPECT_EQ(claim("five", "Gam ma"), "-");
}

}  // namespace faxtray
