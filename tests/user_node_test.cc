#include "inbox/user_node.h"

#include <gtest/gtest.h>
#include <sys/param.h>

#include <algorithm>
#include <random>
#include <vector>

#include "support/capture.h"

namespace faxtray {

static user_node_ptr inbox_of(const std::string &name)
{
    return new_user_node("/nowhere", pw_req_ptr(new_pw(name.c_str(), "", "", 0, 0)), nullptr);
}

TEST(UserNode, ChainIsWhatWalkingFromTheHeadGives)
{
    const char *const pieces[] = {"a", "B", "c", ".", " ", "-", "ab", "7"};
    std::mt19937 random(7);
    inbox_list_t list;
    std::vector<std::string> model;
    capture_stderr quiet;
    for (int i = 0; i < 400; i++) {
        std::string name = pieces[random() % 3];
        for (unsigned n = random() % 4; n > 0; n--)
            name += pieces[random() % std::size(pieces)];
        auto at = std::find_if(model.begin(), model.end(), [&](const std::string &other) {
            return munged_strcmp(other.c_str(), name.c_str()) >= 0;
        });
        bool taken = at != model.end() && munged_strcmp(at->c_str(), name.c_str()) == 0;
        user_node_ptr node = inbox_of(name);
        ASSERT_EQ(add_user_node(&list, node.get()), !taken) << name;
        if (!taken) {
            (void)node.release();
            model.insert(at, name);
        }
        // Found again under any spelling, unless it ends in punctuation.
        EXPECT_EQ(get_user_node(&list, (". " + name).c_str()) != nullptr, equals_itself(name.c_str()))
            << name;

        if (random() % 4 == 0) {
            auto gone = model.begin() + static_cast<long>(random() % model.size());
            user_node_ptr removed(delete_user_node(&list, inbox_of(*gone).get()));
            ASSERT_EQ(removed != nullptr, equals_itself(gone->c_str()));
            if (removed)
                model.erase(gone);
        }
        std::vector<std::string> chain;
        for (const user_node_t *in = list.head; in; in = in->next)
            chain.emplace_back(inbox_name(in));
        ASSERT_EQ(chain, model) << name;
    }
    free_user_list(&list);
}

TEST(UserNode, PathsAreNormalisedOrRefused)
{
    const std::string wide(MAXPATHLEN - 3, 'x');
    EXPECT_STREQ(mk_path("/a//b/", "./c"), "/a/b/c");
    EXPECT_EQ(mk_path("/a", "b c"), nullptr);
    EXPECT_EQ(mk_path("/", wide.c_str()), "/" + wide);
    EXPECT_EQ(mk_path("/a", wide.c_str()), nullptr);
}

}  // namespace faxtray
