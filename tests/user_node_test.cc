#include "inbox/user_node.h"

#include <gtest/gtest.h>
#include <sys/param.h>

#include <algorithm>
#include <random>
#include <vector>

#include "support/capture.h"

namespace faxtray {

static user_node_t *inbox_of(const char *name, const char *path = "/nowhere")
{
    return new_user_node(path, pw_req_ptr(new_pw(name, "", "", 0, 0)), nullptr).release();
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
        user_node_ptr node(inbox_of(name.c_str()));
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
            user_node_ptr like(inbox_of(gone->c_str()));
            user_node_ptr removed(delete_user_node(&list, like.get()));
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
    auto path = [](const char *directory, const char *name) {
        const char *made = mk_path(directory, name);
        return std::string(made ? made : "refused");
    };
    EXPECT_EQ(path("/a//b/", "./c"), "/a/b/c");
    EXPECT_EQ(path("/a", "b c"), "refused");
    EXPECT_EQ(path("/", wide.c_str()), "/" + wide);
    EXPECT_EQ(path("/a", wide.c_str()), "refused");
}

}  // namespace faxtray
