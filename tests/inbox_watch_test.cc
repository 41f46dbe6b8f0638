#include "inbox/inbox_watch.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <random>
#include <set>

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
    view_t(const std::string &path, bool looks_at_all)
        : user(new_user_node(path.c_str(), pw_req_ptr(new_pw("joe", "", "", 0, 7)), nullptr)),
          all(looks_at_all)
    {
    }

    // The reply to a listing and all that later replies depend on; ids as the how manyeth that was given out.
    std::string list(bool knows)
    {
        capture_stderr log;
        capture_stdout silent;
        err_t error = {};
        if (all && user->index)
            user->index->watch.doubt();
        get_index(user.get(), knows ? known : 0, 0, 1, 0, &error);
        std::string text = std::to_string(error.code) + " " + (error.message ? error.message : "") + "\n";
        for (const file_node_t *node = user->index->head; node; node = node->next)
            ids.insert(node->faxid);
        for (const file_node_t *node = user->index->head; node; node = node->next)
            text += std::to_string(std::distance(ids.begin(), ids.find(node->faxid))) + " " + node->name +
                    " " + std::to_string(node->size) + " " + std::to_string(node->mtime) + "\n";
        known = user->index->check_value;
        return text + std::to_string(known) + " " + std::to_string(user->scan_mark) + " " +
               std::to_string(user->commit_mark) + "\n" + log.text();
    }

    user_node_ptr user;
    bool all;
    u_int known = 0;
    std::set<faxid_t> ids;
};

// A history of an inbox, by a seed.
class history_t {
public:
    explicit history_t(unsigned seed, uid_t owner) : random_(seed)
    {
        fs::create_directories(box_);
        fs::create_directory(away_);
        snprintf(dvWork_dir, sizeof dvWork_dir, "%s", top_.path().c_str());
        EXPECT_EQ(chown(top_.path().c_str(), owner, owner) + chown(box_.c_str(), owner, owner) +
                      chown(away_.c_str(), owner, owner) + chown(box_.parent_path().c_str(), owner, owner) +
                      seteuid(owner),
                  0);
        capture_stderr quiet;
        newid();  // the first says that there is no file yet
    }
    ~history_t() { [[maybe_unused]] const int back = seteuid(0); }

    void run(int steps)
    {
        std::string story;
        renew();
        for (int step = 0; step < steps; step++) {
            story = story.size() > 400 ? story.substr(story.size() - 400) : story;
            for (int n = pick(4); n > 0; n--)
                story += change() + "; ";
            const bool knows = pick(2);
            const std::string one = views_[0]->list(knows), other = views_[1]->list(knows);
            story += "LIST; ";
            if (views_[0]->user->index->last_touch != views_[1]->user->index->last_touch)
                renew();  // a second has passed between the two: they may differ
            else
                ASSERT_EQ(one, other) << "step " << step << " after " << story;
        }
    }

private:
    unsigned pick(unsigned n) { return random_() % n; }
    fs::path name() { return box_ / ("f" + std::to_string(pick(20))); }
    fs::path other() { return away_ / ("f" + std::to_string(pick(4))); }
    void renew()
    {
        for (int i = 0; i < 2; i++)
            views_[i] = std::make_unique<view_t>(box_, i == 1);
    }

    // Mostly close to the mark, and often the same; or such that the two delays of the history decide, or to
    // come.
    void set_time(const fs::path &path)
    {
        const time_t now = ::time(nullptr), mark = std::max(now - 100'000'000, views_[0]->user->scan_mark);
        const unsigned kind = pick(40);
        const timespec time = {kind == 0   ? now - 2000
                               : kind == 1 ? now + 1000
                               : kind < 5  ? now - 5
                                           : mark - 1 + static_cast<time_t>(pick(8)),
                               0};
        const timespec both[] = {time, time};
        utimensat(AT_FDCWD, path.c_str(), both, 0);
    }
    void write(const fs::path &path, int flags, const std::string &text)
    {
        const unique_fd fd(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CREAT | flags, 0644));
        if (fd && ::write(fd.get(), text.data(), text.size()) > 0 && pick(4))
            set_time(path);
    }
    void map(const fs::path &path)
    {
        unique_fd fd(open(path.c_str(), O_RDWR | O_NONBLOCK));
        void *bytes = mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
        fd.reset();
        if (bytes == MAP_FAILED)
            return;
        if (fs::file_size(path) > 0)
            *static_cast<volatile char *>(bytes) = 'm';
        munmap(bytes, 1);
    }
    void bind_socket(const fs::path &path)
    {
        const unique_fd fd(socket(AF_UNIX, SOCK_STREAM, 0));
        sockaddr_un address = {AF_UNIX, ""};
        snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
        bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address);
    }
    // Removes what keeps scans from settling, and fails some: it would mostly be there.
    void tidy()
    {
        std::error_code error;
        for (const auto &entry : fs::directory_iterator(box_, error)) {
            struct stat st;
            if (lstat(entry.path().c_str(), &st) == 0 &&
                (!S_ISREG(st.st_mode) || !(st.st_mode & 0400) || st.st_nlink > 1 ||
                 entry.path().filename() == "f 1" || st.st_size == 4))
                fs::remove_all(entry.path(), error);
        }
    }

    // Both views look whether a fax is still what was listed.
    void look()
    {
        const unsigned at = pick(6);
        for (const auto &view : views_) {
            const file_node_t *node = view->user->index ? view->user->index->head : nullptr;
            for (unsigned i = 0; i < at && node; i++)
                node = node->next;
            if (node)
                is_there_as_listed(view->user->index, node->faxid, (box_ / node->name).c_str());
        }
    }

    // One change, and what it was.
    std::string change();

    std::mt19937 random_;
    temp_dir top_;
    fs::path box_ = top_.path() + "/above/box", away_ = top_.path() + "/away";
    std::unique_ptr<view_t> views_[2];
};

std::string history_t::change()
{
    const fs::path a = name(), b = name(), out = other();
    const fs::path above = box_.parent_path();
    std::error_code error;
    struct deed_t {
        unsigned share;
        const char *name;
        std::function<void()> act;
    };
    const deed_t deeds[] = {
        {40, "create", [&] { write(a, O_TRUNC, "text"); }},
        {10, "write on", [&] { write(a, O_APPEND, "more"); }},
        {10, "rename over", [&] { fs::rename(a, b, error); }},
        {10, "remove", [&] { unlink(a.c_str()); }},
        {10, "set time", [&] { set_time(a); }},
        {5, "write by mmap", [&] { map(a); }},
        {5, "move in", [&] { write(out, O_TRUNC, "in"), fs::rename(out, a, error); }},
        {5, "move out", [&] { fs::rename(a, out, error); }},
        {4, "begin", [&] { write(box_ / "ii_f", O_TRUNC, "begun"); }},
        {4, "end", [&] { fs::rename(box_ / "ii_f", a, error); }},
        {4, "change mode", [&] { chmod(a.c_str(), pick(3) ? 0644 : 0); }},
        {4, "marker",
         [&] { pick(2) ? set_time(box_ / ".inbox_index") : (void)unlink((box_ / ".inbox_index").c_str()); }},
        {3, "delay", [&] { Update_slop = Update_slop == 60 ? 4000 : 60; }},
        {2, "link in", [&] { fs::create_hard_link(out, a, error); }},
        {2, "link out", [&] { fs::create_hard_link(a, out, error), chmod(a.c_str(), 0644); }},
        {3, "set time elsewhere", [&] { set_time(out); }},
        {2, "change mode elsewhere", [&] { chmod(out.c_str(), pick(2) ? 0644 : 0); }},
        {2, "symlink", [&] { fs::create_symlink(out, a, error); }},
        {2, "remove elsewhere", [&] { unlink(out.c_str()); }},
        {1, "subdirectory", [&] { fs::create_directory(a, error); }},
        {1, "FIFO", [&] { mkfifo(a.c_str(), 0644); }},
        {1, "socket", [&] { bind_socket(a); }},
        {1, "damaged", [&] { write(a, O_TRUNC, "\xBA\xDB\xAD\x16"); }},
        {1, "odd name", [&] { write(box_ / "f 1", O_TRUNC, "text"); }},
        {1, "replace directory",
         [&] {
             fs::rename(box_, away_ / "box", error),
                 pick(2) ? fs::rename(away_ / "box", box_, error) : (void)fs::create_directory(box_, error),
                 fs::remove_all(away_ / "box", error);
         }},
        {1, "rename above",
         [&] { fs::rename(above, top_ / "gone", error), pick(2) && fs::create_directories(box_, error); }},
        {3, "rename back",
         [&] {
             fs::exists(top_ / "gone") && fs::remove_all(above, error) != 9 &&
                 (fs::rename(top_ / "gone", above, error), true);
         }},
        {6, "look", [&] { look(); }},
        {1, "mode of directory", [&] { chmod(box_.c_str(), 0300); }},
        {2, "and back", [&] { chmod(box_.c_str(), 0755); }},
        {25, "tidy", [&] { tidy(); }},
        {1, "new lists", [&] { renew(); }},
    };
    unsigned all = 0;
    for (const deed_t &deed : deeds)
        all += deed.share;
    unsigned at = pick(all);
    const deed_t *deed = deeds;
    for (; at >= deed->share; deed++)
        at -= deed->share;
    deed->act();
    return std::string(deed->name) + " " + a.filename().string() + " " + b.filename().string();
}

}  // namespace

// WATCH_STEPS and WATCH_SEED ask for more than the tests' time allows.
TEST(InboxWatch, ListsWhatAScanOfEverythingLists)
{
    const char *steps = getenv("WATCH_STEPS"), *seed = getenv("WATCH_SEED");
    for (uid_t owner : {0, 65534})  // whom modes do not concern, and whom they do
        if (geteuid() == 0 || owner == 0)
            history_t(seed ? atoi(seed) : 20261122, geteuid() == 0 ? owner : geteuid())
                .run(steps ? atoi(steps) : 5000);
}

// A file with a second name elsewhere, by which it changes without an event.
struct linked_scene_t {
    linked_scene_t()
    {
        capture_stderr quiet;
        newid();  // the first of a process has something to say
        Update_slop = 60;
        set_mtime(box.write("fax", "no fax"), 1000);
    }
    void change_elsewhere()
    {
        fs::create_hard_link(box / "fax", away / "fax");
        set_mtime(away / "fax", 2000);
    }

    temp_dir box, away;
    view_t view{box.path(), false};
};

TEST(InboxWatch, LooksAtEverythingNowAndThen)
{
    linked_scene_t scene;
    const std::string before = scene.view.list(false);
    scene.change_elsewhere();
    EXPECT_EQ(scene.view.list(false), before) << "nothing has told of it";
    full_scan_seconds = -1;
    EXPECT_NE(scene.view.list(false), before);
    full_scan_seconds = 600;
}

TEST(InboxWatch, LeavesTheEventsOfTheDaemonToIt)
{
    linked_scene_t scene;
    const std::string before = scene.view.list(false);
    set_mtime(scene.box / "fax", 2000);
    if (fork() == 0) {
        scene.view.list(false);
        scene.view.user.reset();
        _exit(0);
    }
    wait(nullptr);
    EXPECT_NE(scene.view.list(false), before);
    EXPECT_EQ(scene.view.list(false), scene.view.list(false));
    set_mtime(scene.box / "fax", 3000);
    EXPECT_EQ(std::ranges::count(scene.view.list(false), '\n'), 5) << "the daemon watches on";
}

}  // namespace faxtray
