#include "inbox/inbox_index.h"
#include "inbox/inbox_scan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "support/capture.h"
#include "support/site.h"
#include "support/temp_dir.h"
#include "util/settings.h"

namespace faxtray {

namespace {

// One user's inbox in a directory of its own.
struct inbox_scene {
    inbox_scene() { Update_slop = 60; }
    void put(const std::string &name, time_t mtime, const std::string &content = "no fax")
    {
        set_mtime(dir.write(name, content), mtime);
    }
    void remove(const std::string &name) { unlink((dir / name.c_str()).c_str()); }
    fax_index_t *index() { return user->index; }

    temp_dir dir;
    user_node_ptr user = new_user_node(dir.path().c_str(), pw_req_ptr(new_pw("joe", "", "", 0, 7)), nullptr);
};

// The scan and the insertion in the plainest words, to compare with.
struct model_t {
    using entry = std::pair<std::string, time_t>;
    std::vector<entry> chain;
    time_t mark = 1000;
    u_int check_value = 0;
    std::set<std::string>
        dropped;  // since the last complete scan: listed whatever their time if they come back

    // The files of `directory` by name; `broken` is one that cannot be read as a fax.
    bool scan(const std::string &directory, const std::map<std::string, time_t> &files,
              const std::string &broken)
    {
        auto gone = [&](const entry &e) { return !files.contains(e.first); };
        if (auto at = std::find_if(chain.begin(), chain.end(), gone); at != chain.end()) {
            dropped.insert(at->first);
            chain.erase(at);
        }
        auto before = chain;
        time_t newest = mark;
        for (const auto &file : std::filesystem::directory_iterator(directory)) {
            const std::string name = file.path().filename();
            const entry found(name, name == ".inbox_index" ? 0 : files.at(name));
            if ((found.second <= mark && !dropped.contains(name)) ||
                std::find(before.begin(), before.end(), found) != before.end())
                continue;
            if (name == broken)
                return false;
            auto older = [](const entry &a, const entry &b) { return a.second < b.second; };
            chain.insert(std::upper_bound(chain.begin(), chain.end(), found, older), found);
            newest = std::max(newest, found.second);
        }
        mark = newest;
        dropped.clear();
        check_value = 0;
        for (const entry &e : chain)
            for (char c : e.first)
                check_value += static_cast<u_int>(static_cast<signed char>(c));
        return true;
    }
};
}  // namespace

TEST(InboxIndex, IsWhatInsertingFileByFileGives)
{
    std::mt19937 random(20261121);
    auto pick = [&](size_t n) { return static_cast<int>(random() % n); };
    inbox_scene scene;
    model_t model;
    scene.user->scan_mark = model.mark;
    std::map<std::string, time_t> files;
    auto put = [&](const std::string &name, const std::string &content) {
        files[name] = model.mark + pick(8) - 2;  // mostly above the mark, many of them equal
        scene.put(name, files[name], content);
    };
    capture_stderr quiet;
    capture_stdout silent;
    for (int round = 0; round < 300; round++) {
        for (int i = round == 0 ? 300 : pick(6); i > 0; i--) {
            std::string name = "f\xE4x" + std::to_string(pick(100));
            if (pick(3) != 0)
                put(name, "no fax");
            else if (files.erase(name))
                scene.remove(name);
        }
        // Now and then a file is corrupt for one scan; it lies anywhere in the directory.
        std::string broken;
        if (pick(3) == 0 && !files.empty()) {
            broken = std::next(files.begin(), pick(files.size()))->first;
            put(broken, "\xBA\xDB\xAD\x16");
        }
        ASSERT_EQ(load_inbox(scene.user.get()), model.scan(scene.dir.path(), files, broken)) << round;
        if (!broken.empty())
            scene.put(broken, files[broken]);
        // Now and then one leaves by its id, as when a client removes it.
        if (pick(5) == 0 && !model.chain.empty()) {
            int at = pick(model.chain.size());
            const file_node_t *node = scene.index()->head;
            for (int i = 0; i < at; i++)
                node = node->next;
            file_node_ptr gone(delete_file_node(scene.index(), node->faxid));
            ASSERT_TRUE(gone.get() == node && !gone->next);
            model.chain.erase(model.chain.begin() + at);
        }

        std::vector<model_t::entry> chain;
        for (const file_node_t *node = scene.index()->head; node; node = node->next) {
            ASSERT_EQ(get_file_node(scene.index(), node->faxid), node) << round;
            chain.emplace_back(node->name, node->mtime);
        }
        ASSERT_EQ(chain, model.chain) << round;
        ASSERT_EQ(get_fax_count(scene.user.get()), chain.size()) << round;
        ASSERT_EQ(scene.index()->check_value, model.check_value) << round;
        ASSERT_EQ(scene.user->scan_mark, model.mark) << round;
    }
}

}  // namespace faxtray
