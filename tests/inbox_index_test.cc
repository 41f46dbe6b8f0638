#include "inbox/inbox_index.h"
#include "inbox/inbox_scan.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <vector>

#include "support/capture.h"
#include "support/inbox_scene.h"
#include "util/settings.h"

namespace faxtray {

TEST(InboxIndex, ListsWhatHeadersSay)
{
    inbox_scene scene;
    scene.put("short", 1000, "\xBA\xDB\xAD");
    scene.put("whole", 1001, fax_bytes("SENDER_FAX#:+1 2\n#PAGES: 3x\nT30_SUB_FRAME:4:5\n"));
    scene.put("odd", 1002, fax_bytes("SENDER_FAX#:a\n#PAGES:1\nSENDER_FAX#:b\n#PAGES:x\n"));
    load_inbox(scene.user.get());
    std::string told;
    for (const file_node_t *n = scene.index()->head; n; n = n->next)
        told += std::to_string(n->is_fax) + "|" + std::to_string(n->pages) + "|" + n->sender_fax + "|" +
                n->subaddress + "|" + n->pwd_frame + "\n";
    EXPECT_EQ(told, "0|-1|||\n1|3|+1 2|4:5|Unknown\n1|-1|b|Unknown|Unknown\n");
}

// The scan and the insertion told in the plainest words, to compare with.
namespace {
struct model_t {
    using entry = std::pair<std::string, time_t>;
    std::vector<entry> chain;
    time_t mark = 1000;
    u_int check_value = 0;

    // Files by name, as they stand in `directory`; `broken` is one that cannot be read as a fax.
    bool scan(const std::string &directory, const std::map<std::string, time_t> &files,
              const std::string &broken)
    {
        auto gone = [&](const entry &e) { return !files.contains(e.first); };
        if (auto at = std::find_if(chain.begin(), chain.end(), gone); at != chain.end())
            chain.erase(at);
        auto before = chain;
        time_t newest = mark;
        for (const auto &file : std::filesystem::directory_iterator(directory)) {
            const std::string name = file.path().filename();
            const entry found(name, name == ".inbox_index" ? 0 : files.at(name));
            if (found.second <= mark || std::find(before.begin(), before.end(), found) != before.end())
                continue;
            if (name == broken)
                return false;
            auto older = [](const entry &a, const entry &b) { return a.second < b.second; };
            chain.insert(std::upper_bound(chain.begin(), chain.end(), found, older), found);
            newest = std::max(newest, found.second);
        }
        mark = newest;
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

TEST(InboxIndex, DropsOneVanishedFileAScan)
{
    inbox_scene scene;
    for (const char *name : {"a", "b", "c", "d"})
        scene.put(name, 1000 + *name);
    load_inbox(scene.user.get());
    for (const char *name : {"a", "b", "d"})
        scene.remove(name);
    mkdir((scene.dir / "d").c_str(), 0755);  // a directory in a file's place is no fax either
    for (const char *left : {"b c d", "c d", "c", "c"}) {
        load_inbox(scene.user.get());
        EXPECT_EQ(scene.names(), left);
    }
}

TEST(InboxIndex, LeavesOutWhatIsYoungHiddenOrNoFile)
{
    inbox_scene scene;
    for (const char *name : {"old", "ii_part", ".hidden"})
        scene.put(name, 1000);
    scene.put("iii", 1001);
    scene.put("young", time(nullptr));
    mkdir((scene.dir / "folder").c_str(), 0755);
    mkfifo((scene.dir / "pipe").c_str(), 0644);
    load_inbox(scene.user.get());
    EXPECT_EQ(scene.names(), "old iii");

    // Should a pipe take a file's place between the look at it and the opening, nobody waits for a writer.
    const file_node_ptr pipe(create_file_node((scene.dir / "pipe").c_str(), "pipe", {}));
    EXPECT_TRUE(pipe && !pipe->is_fax);
}

// The clock of the file system, when it is not ours: what utime(2) sets to "now".
static time_t file_system_clock;
extern "C" int utime(const char *path, const utimbuf *) noexcept
{
    const timespec times[] = {{file_system_clock, 0}, {file_system_clock, 0}};
    return utimensat(AT_FDCWD, path, file_system_clock ? times : nullptr, 0);
}

TEST(InboxIndex, GoesByTheClockOfTheFileSystem)
{
    inbox_scene scene;
    scene.put(".inbox_index", 1);
    for (time_t age : {59, 60, 61})
        scene.put(std::to_string(age), 5000 - age);
    file_system_clock = 5000;
    load_inbox(scene.user.get());
    EXPECT_EQ(scene.names(), "61");
    file_system_clock = 5001;
    load_inbox(scene.user.get());
    EXPECT_EQ(scene.names(), "61 60");
    file_system_clock = 0;
}

TEST(InboxIndex, FailsOverAFileThatCannotBeListed)
{
    const struct {
        const char *name, *content, *message;
    } rows[] = {
        {"corrupt", "\xBA\xDB\xAD\x16\x7f", "/corrupt\") failed\n"},
        {"white space", "x", ",\"white space\") failed.\n"},
        {"socket", nullptr, "/socket\"): No such device"},
    };
    for (auto &row : rows) {
        inbox_scene scene;
        scene.put("sound", 1000);
        if (row.content)
            scene.put(row.name, 2000, row.content);
        else
            mknod((scene.dir / row.name).c_str(), S_IFSOCK | 0644, 0);
        set_mtime(scene.dir / row.name, 2000);
        capture_stderr printed;
        capture_stdout silent;
        EXPECT_EQ(scene.slice(0, 1, 0), "21: Trayd: Can't update index.") << row.name;
        EXPECT_NE(printed.text().find(row.message), std::string::npos) << row.message;
        EXPECT_EQ(scene.user->scan_mark, 0);
        scene.remove(row.name);
        EXPECT_EQ(scene.slice(0, 1, 0), "sound");
    }
}

TEST(InboxIndex, GivesSlicesOrTellsWhyNot)
{
    inbox_scene scene;
    EXPECT_EQ(scene.slice(77, 9, 0), "");  // empty: whatever was asked for
    for (int i = 0; i < 250; i++)
        scene.put(std::to_string(i), 1000 + i);
    load_inbox(scene.user.get());
    const struct {
        int from, how, count, first, last;  // positions; from -1: no fax id
    } rows[] = {{-1, 9, 3, 0, 2},       {-1, 1, -5, 0, 99},     {-1, 1, 99, 0, 98},
                {240, 1, 0, 240, 249},  {10, 0, 10, 1, 10},     {10, 0, 11, 0, 10},
                {150, 0, 100, 51, 150}, {200, 0, 150, 51, 150}, {200, 0, 201, 0, 99}};
    auto id = [&](int at) { return at < 0 ? 0 : static_cast<int>(scene.id(std::to_string(at).c_str())); };
    for (auto &row : rows) {
        std::string expected;
        for (int i = row.first; i <= row.last; i++)
            expected.append(expected.empty() ? "" : " ").append(std::to_string(i));
        EXPECT_EQ(scene.slice(id(row.from), row.how, row.count), expected) << row.from << " " << row.count;
    }
    u_int check_value = scene.index()->check_value;
    EXPECT_EQ(scene.slice(-1, 1, 0), "11: Trayd: Invalid faxid: -1.\n");
    EXPECT_EQ(scene.slice(id(1), 2, 0), "3: Trayd: Invalid how: 2.\n");
    EXPECT_EQ(scene.slice(id(1), 2, 0, check_value), "13: Trayd: Index has not changed since last request.");
}

TEST(InboxIndex, CommitsEverythingUpToWhatWasShown)
{
    inbox_scene scene;
    for (const char *name : {"a", "b", "c", "d", "e"})
        scene.put(name, 1000 + *name);
    EXPECT_EQ(scene.slice(0, 1, 3), "a b c");
    scene.remove("b");
    capture_stderr printed;
    commit_index(scene.user.get());
    EXPECT_EQ(printed.text(),
              "Trayd: Can't remove committed file: [" + scene.dir / "b" + "]: No such file or directory.");
    EXPECT_EQ(scene.names(), "d e");
}

}  // namespace faxtray
