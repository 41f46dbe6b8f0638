#include "inbox/inbox_watch.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>

#include "inbox/fax_ids.h"
#include "inbox/inbox_index.h"
#include "inbox/listed_file.h"
#include "support/capture.h"
#include "util/settings.h"

namespace faxtray {

namespace fs = std::filesystem;

namespace {

// One look at the inbox, of two: by events, or at everything each time.
struct view_t {
    // The reply to a listing and all that later ones depend on; ids as the how manyeth that was given out.
    std::string list(bool knows = false)
    {
        capture_stderr log;
        capture_stdout silent;
        err_t error = {};
        if (all && user->index)
            user->index->watch.doubt();
        get_index(user.get(), knows ? user->index->check_value : 0, 0, 1, 0, &error);
        for (const file_node_t *node = user->index->head; node; node = node->next)
            ids.insert(node->faxid);
        std::ostringstream text;
        text << error.code << " " << (error.message ? error.message : "") << "\n";
        for (const file_node_t *node = user->index->head; node; node = node->next)
            text << std::distance(ids.begin(), ids.find(node->faxid)) << " " << node->name << " "
                 << node->size << " " << node->mtime << "\n";
        text << user->index->check_value << " " << user->scan_mark << " " << user->commit_mark << "\n";
        return text.str() + log.text();
    }

    bool all;
    user_node_ptr user;
    std::set<faxid_t> ids;
};

// An inbox, and what happens to it, by a seed.
struct history_t {
    history_t(unsigned seed, uid_t owner) : random(seed)
    {
        EXPECT_TRUE(chmod(top.path().c_str(), 0777) == 0 && seteuid(owner) == 0);
        fs::create_directories(box);
        fs::create_directory(top / "out");
        snprintf(dvWork_dir, sizeof dvWork_dir, "%s", top.path().c_str());
        capture_stderr quiet;
        newid();  // the first of a process has something to say
        Update_slop = 60;
        renew();
    }
    ~history_t() { [[maybe_unused]] const int back = seteuid(0); }

    unsigned pick(size_t n) { return static_cast<unsigned>(random() % n); }
    void renew()
    {
        for (bool all : {false, true})
            views[all] = {
                all, new_user_node(box.c_str(), pw_req_ptr(new_pw("joe", "", "", 0, 7)), nullptr), {}};
    }
    // A child of the daemon's looks, too: the events stay the daemon's.
    void fork_child()
    {
        if (fork() == 0)
            _exit((views[0].list(), views[0].user.reset(), 0));
        wait(nullptr);
    }
    void write(const fs::path &path, int flags, const std::string &text)
    {
        const unique_fd fd(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CREAT | flags, 0644));
        EXPECT_TRUE(!fd || ::write(fd.get(), text.data(), text.size()) != 0);
    }
    void time(const fs::path &path)
    {
        const time_t now = ::time(nullptr), mark = std::max(now - 100'000'000, views[0].user->scan_mark);
        const time_t far[] = {now - 2000, now + 1000, now - 5, now - 5, now - 5};
        const unsigned kind = pick(40);
        const timespec at = {kind < std::size(far) ? far[kind] : mark - 1 + pick(8), 0}, times[] = {at, at};
        utimensat(AT_FDCWD, path.c_str(), times, 0);
    }
    void map(const fs::path &path)
    {
        const unique_fd fd(open(path.c_str(), O_RDWR | O_NONBLOCK));
        if (lseek(fd.get(), 0, SEEK_END) <= 0)
            return;
        void *byte = mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
        *static_cast<volatile char *>(byte) = 'm';
        munmap(byte, 1);
    }
    // Removes what fails scans, or keeps the watch in doubt: it would mostly be there.
    void tidy()
    {
        struct stat st;
        std::error_code error;
        for (const fs::path &path : fs::directory_iterator(box, error))
            if (lstat(path.c_str(), &st) == 0 && (st.st_mode != (S_IFREG | 0644) || st.st_nlink > 1))
                fs::remove_all(path, error);
    }
    // Both views look whether the oldest fax is still what was listed.
    void look()
    {
        for (const view_t &view : views)
            if (fax_index_t *index = view.user->index; index && index->head)
                is_there_as_listed(index, index->head->faxid, (box / index->head->name).c_str());
    }
    void happen(const std::string &what);

    std::mt19937 random;
    temp_dir top;
    fs::path box = top / "up/box";
    view_t views[2];
};

// Does what a line of the history says.
void history_t::happen(const std::string &what)
{
    using path = const fs::path &;
    const auto number = [](path p) { return std::stoi(p.filename(), nullptr, 8); };
    std::error_code error;
    const std::map<std::string, std::function<void(path, path)>> deeds = {
        {"write", [&](path a, path) { write(a, O_TRUNC, "text"); }},
        {"append", [&](path a, path) { write(a, O_APPEND, "more"); }},
        {"damage", [&](path a, path) { write(a, O_TRUNC, "\xBA\xDB\xAD\x16"); }},
        {"mv", [&](path a, path b) { fs::rename(a, b, error); }},
        {"swap", [&](path a, path b) { renameat2(-1, a.c_str(), -1, b.c_str(), RENAME_EXCHANGE); }},
        {"rm", [&](path a, path) { fs::remove_all(a, error); }},
        {"mkdir", [&](path a, path) { fs::create_directory(a, error); }},
        {"mknod", [&](path a, path mode) { mknod(a.c_str(), number(mode), 0); }},
        {"link", [&](path a, path b) { fs::create_hard_link(a, b, error); }},
        {"symlink", [&](path a, path b) { fs::create_symlink(a, b, error); }},
        {"chmod", [&](path a, path mode) { chmod(a.c_str(), number(mode)); }},
        {"time", [&](path a, path) { time(a); }},
        {"map", [&](path a, path) { map(a); }},
        {"delay", [&](path, path) { Update_slop = Update_slop == 60 ? 4000 : 60; }},
        {"look", [&](path, path) { look(); }},
        {"tidy", [&](path, path) { tidy(); }},
        {"child", [&](path, path) { fork_child(); }},
        {"renew", [&](path, path) { renew(); }}};
    const std::map<char, std::string> numbers = {
        {'A', std::to_string(pick(20))}, {'B', std::to_string(pick(20))}, {'C', std::to_string(pick(4))}};
    std::istringstream steps(what);
    for (std::string step, verb; std::getline(steps, step, ';');) {
        std::istringstream words(step);
        std::string word[2];
        words >> verb >> word[0] >> word[1];
        for (std::string &name : word)
            if (const auto found = numbers.find(name.empty() ? 0 : name.back()); found != numbers.end())
                name.replace(name.size() - 1, 1, found->second);
        deeds.at(verb)(top / word[0].c_str(), top / word[1].c_str());
    }
}

}  // namespace

// WATCH_STEPS and WATCH_SEED ask for more than the tests' time allows.
TEST(InboxWatch, ListsWhatAScanOfEverythingLists)
{
    std::vector<std::string> lines;
    std::ifstream in(TEST_DATA "/inbox_history");
    for (std::string line; std::getline(in, line);)
        for (int share = atoi(line.c_str()); share > 0; share--)
            lines.push_back(line.substr(3));
    const char *steps = getenv("WATCH_STEPS"), *seed = getenv("WATCH_SEED");
    for (uid_t owner : {0, 65534}) {  // whom modes do not concern, and whom they do
        history_t history(seed ? atoi(seed) : 20261122, geteuid() == 0 ? owner : geteuid());
        std::string story;
        for (int step = steps ? atoi(steps) : 5000; step > 0; step--) {
            for (int n = history.pick(4); n > 0; n--)
                history.happen(story = lines[history.pick(lines.size())]);
            const bool knows = history.pick(2) && history.views[0].user->index;
            const std::string one = history.views[0].list(knows), other = history.views[1].list(knows);
            if (history.views[0].user->index->last_touch != history.views[1].user->index->last_touch)
                history.renew();  // a second has passed between the two: they may differ
            else
                ASSERT_EQ(one, other) << step << " steps before the end, after " << story;
        }
    }
}

TEST(InboxWatch, LooksAtEverythingNowAndThen)
{
    history_t history(1, geteuid());
    set_mtime(history.top.write("up/box/fax", "no fax"), 1000);
    const std::string before = history.views[0].list();
    fs::create_hard_link(history.box / "fax", history.top / "out/fax");
    set_mtime(history.top / "out/fax", 2000);
    EXPECT_EQ(history.views[0].list(), before) << "nothing has told of it";
    full_scan_seconds = -1;
    EXPECT_NE(history.views[0].list(), before);
    full_scan_seconds = 600;
}

}  // namespace faxtray
