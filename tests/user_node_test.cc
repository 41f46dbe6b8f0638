#include "inbox/user_node.h"

#include <gtest/gtest.h>
#include <sys/param.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <vector>

#include "inbox/inbox_index.h"
#include "support/capture.h"
#include "support/inbox_scene.h"

namespace faxtray {

static user_node_t *inbox_of(const char *name, const char *path = "/nowhere")
{
    return new_user_node(path, pw_req_ptr(new_pw(name, "", "", 0, 0)), nullptr).release();
}

static std::vector<std::string> chain(const inbox_list_t &list)
{
    std::vector<std::string> names;
    for (const user_node_t *node = list.head; node; node = node->next)
        names.emplace_back(inbox_name(node));
    return names;
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
        size_t at = 0;
        bool taken = false;
        for (; at < model.size(); at++) {
            int order = munged_strcmp(model[at].c_str(), name.c_str());
            taken = order == 0;
            if (order >= 0)
                break;
        }
        user_node_t *node = inbox_of(name.c_str());
        ASSERT_EQ(add_user_node(&list, node), !taken) << name;
        if (taken)
            free_user_node(node);
        else
            model.insert(model.begin() + static_cast<long>(at), name);
        ASSERT_EQ(chain(list), model) << name;
        // Found again under any spelling, unless it ends in punctuation.
        EXPECT_EQ(get_user_node(&list, (". " + name).c_str()) != nullptr, equals_itself(name.c_str()))
            << name;

        if (random() % 4 == 0) {
            size_t gone = random() % model.size();
            user_node_ptr like(inbox_of(model[gone].c_str()));
            user_node_ptr removed(delete_user_node(&list, like.get()));
            ASSERT_EQ(removed != nullptr, equals_itself(model[gone].c_str()));
            if (removed)
                model.erase(model.begin() + static_cast<long>(gone));
            ASSERT_EQ(chain(list), model);
        }
    }
    free_user_list(&list);
    EXPECT_FALSE(list.head);
    EXPECT_FALSE(get_user_node(&list, "a"));
    EXPECT_FALSE(get_user_node(&list, nullptr));
    EXPECT_FALSE(get_user_node(nullptr, "a"));
}

TEST(UserNode, MarkerGoesWithAnInboxThatWasNeverLoaded)
{
    inbox_scene loaded, idle, stuck;
    load_inbox(loaded.user.get());
    idle.put(".inbox_index", 1000);
    mkdir((stuck.dir / ".inbox_index").c_str(), 0755);
    inbox_list_t list;
    add_user_node(&list, loaded.user.release());
    add_user_node(&list, inbox_of("a", idle.dir.path().c_str()));
    add_user_node(&list, inbox_of("b", (idle.dir / "none").c_str()));
    add_user_node(&list, inbox_of("c", stuck.dir.path().c_str()));
    user_node_ptr again(inbox_of("J-O-E"));

    capture_stderr printed;
    EXPECT_EQ(add_user_node(&list, again.get()), 0);
    dump_list(&list);
    EXPECT_EQ(printed.text(), "add_user_node: Duplicate user: [J-O-E]\ndump_user_node: unlink(\"" +
                                  stuck.dir / ".inbox_index" + "\"): Is a directory.\n" +
                                  "faxtrayd: Can't save status for inbox: [c],\n");
    EXPECT_FALSE(list.head);
    EXPECT_EQ(access((loaded.dir / ".inbox_index").c_str(), F_OK), 0);
    EXPECT_NE(access((idle.dir / ".inbox_index").c_str(), F_OK), 0);
}

TEST(UserNode, PathsAreNormalisedOrRefused)
{
    const std::string wide(MAXPATHLEN - 3, 'x');
    struct {
        const char *directory, *name, *path;
    } rows[] = {
        {"/a/b", "c", "/a/b/c"},
        {"/a//b/", "./c", "/a/b/c"},
        {"/a", nullptr, "/a"},
        {"/a", "b c", nullptr},
        {"/a", "b\"", "/a/b"},
        {"/..", "x", nullptr},
        {"/", wide.c_str(), wide.c_str()},
        {"/a", wide.c_str(), nullptr},
    };
    for (auto &row : rows) {
        const char *path = mk_path(row.directory, row.name);
        if (row.path)
            EXPECT_STREQ(path, row.path == wide ? ("/" + wide).c_str() : row.path) << row.directory;
        else
            EXPECT_FALSE(path) << row.directory;
    }
    trace_on trace;
    mk_path("/a", wide.c_str());
    mk_path((wide + "wide").c_str(), nullptr);
    EXPECT_EQ(trace.text(), "mk_path: \"/a/" + wide + "\" exceeds MAXPATHLEN.\nmk_path: \"" + wide +
                                "wide\" exceeds MAXPATHLEN.\n");
}

}  // namespace faxtray
