// Question: what does listing an inbox cost beyond the system calls that cannot be avoided, does it grow in
// step with the inbox, and what does a large configuration cost?
//
// Data: inboxes of 1,000, 10,000 and 100,000 fax files (a header of eight attributes and 512 bytes of page
// data each) and user lists of 2,000 and 20,000 users with their inbox directories, all made in a directory
// of their own below the argument (default /dev/shm), and removed at the end. Files are in the page cache.
//
// The bare loop reads the directory and, for each file, does fstatat and, where a scan has to read the
// file, open, read(4 KiB) and close. Every figure is the median of several runs; bare loop and ours take
// turns, each in a process of its own, so that each reports its own peak memory.
#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "faxfile/fax_header.h"
#include "inbox/inbox_index.h"
#include "inbox/inbox_lists.h"
#include "util/settings.h"

namespace faxtray {

constexpr int runs = 7;
constexpr time_t first_mtime = 1000000000;

static std::string root;  // the directory that holds all data

[[noreturn]] static void fail(const char *what)
{
    perror(what);
    exit(1);
}

// Data

static void write_fax(const std::string &path, int i)
{
    unique_fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    fax_header_ptr header(new_fax_header("#PAGES", std::to_string(1 + i % 9).c_str()));
    const char *attrs[][2] = {{"SENDER_FAX#", "+49 30 1234567"},
                              {"T30_SUB_FRAME", "4711"},
                              {"T30_PWD_FRAME", ""},
                              {"RESOLUTION", "1"},
                              {"COMPRESSION", "0"},
                              {"RECEIVE_TIME", "Sat Nov 21 03:44:21 2026"},
                              {"MODEM", "ttyS0"}};
    for (auto &[attr, value] : attrs)
        set_fax_header_av(header.get(), attr, value);
    const std::string pages(512, '\x2c');
    if (!fd || write_fax_header(fd.get(), header.get()) != 1 ||
        write(fd.get(), pages.data(), pages.size()) != static_cast<ssize_t>(pages.size()))
        fail(path.c_str());
    const struct timespec times[2] = {{first_mtime, 0}, {first_mtime + i / 3, 0}};
    if (futimens(fd.get(), times) < 0)
        fail(path.c_str());
}

// A name as received faxes have it; hashed so that the directory's order is not that of arrival.
static std::string fax_name(int i)
{
    char name[32];
    snprintf(name, sizeof name, "rcv%08x.fax", static_cast<unsigned>(i) * 2654435761U);
    return name;
}

static void make_inbox(const std::string &path, int faxes)
{
    std::filesystem::create_directory(path);
    for (int i = 0; i < faxes; i++)
        write_fax(path + "/" + fax_name(i), i);
    sync();  // so that writing back does not disturb what is measured
}

static void make_configuration(const std::string &path, int n)
{
    std::filesystem::create_directories(path + "/incoming");
    file_ptr list(fopen((path + "/USER_LIST.info").c_str(), "w"));
    fprintf(list.get(), "[default]\n\tdelivery_dir_root = %s\n", path.c_str());
    for (int i = 0; i < n; i++) {
        fprintf(list.get(), "[user %d]\n\thuman_name = User Number %d\n\tpassword = 5f3a%x\n", i, i, i);
        std::filesystem::create_directory(path + "/user" + std::to_string(i));
    }
    std::filesystem::create_directory(path + "/admin");
    file_ptr modems(fopen((path + "/MODEMS.info").c_str(), "w"));
    fprintf(modems.get(), "[default]\n\tincoming_root = %s\n[ttyS0]\n\tincoming_dir = incoming\n",
            path.c_str());
}

// Measuring

struct figures_t {
    double ms;    // wall clock
    double peak;  // bytes of memory that the work added at most
};

// Kilobytes of the named line of /proc/self/status.
static double status_kb(const char *line)
{
    file_ptr status(fopen("/proc/self/status", "r"));
    char text[256];
    while (status && fgets(text, sizeof text, status.get()))
        if (strncmp(text, line, strlen(line)) == 0)
            return atof(text + strlen(line));
    return 0;
}

static void reset_peak()
{
    file_ptr refs(fopen("/proc/self/clear_refs", "w"));
    if (refs)
        fputs("5", refs.get());
}

// Runs `prepare` and then, measured, `work` in a process of its own.
static figures_t measure(const std::function<void()> &prepare, const std::function<void()> &work)
{
    void *shared =
        mmap(nullptr, sizeof(figures_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED)
        fail("mmap");
    auto *figures = static_cast<figures_t *>(shared);
    fflush(stdout);
    pid_t child = fork();
    if (child < 0)
        fail("fork");
    if (child == 0) {
        prepare();
        reset_peak();
        double before = status_kb("VmRSS:");
        auto start = std::chrono::steady_clock::now();
        work();
        std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
        *figures = {took.count(), (status_kb("VmHWM:") - before) * 1024};
        _exit(0);
    }
    int status;
    if (waitpid(child, &status, 0) < 0 || status != 0) {
        fprintf(stderr, "a measured process failed\n");
        exit(1);
    }
    figures_t result = *figures;
    munmap(shared, sizeof(figures_t));
    return result;
}

static double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

struct comparison_t {
    figures_t bare, ours;
};

static comparison_t compare(const std::function<void()> &bare, const std::function<void()> &prepare,
                            const std::function<void()> &ours)
{
    std::vector<double> bare_ms, bare_peak, our_ms, our_peak;
    for (int i = 0; i < runs; i++) {
        figures_t b = measure([] {}, bare);
        figures_t o = measure(prepare, ours);
        bare_ms.push_back(b.ms);
        bare_peak.push_back(b.peak);
        our_ms.push_back(o.ms);
        our_peak.push_back(o.peak);
    }
    return {{median(bare_ms), median(bare_peak)}, {median(our_ms), median(our_peak)}};
}

static void print_row(const char *what, int n, const comparison_t &c)
{
    printf("%-28s %7d %10.2f %10.2f %7.2f %12.0f %9.0f\n", what, n, c.bare.ms, c.ours.ms,
           c.ours.ms / c.bare.ms, c.ours.peak / 1024, c.ours.peak / n);
}

// What is compared

// The system calls a scan cannot do without; `reading`: of files that are new to it.
static void bare_scan(const std::string &path, bool reading)
{
    dir_ptr dir(opendir(path.c_str()));
    if (!dir)
        fail(path.c_str());
    char block[4096];
    while (const dirent *entry = readdir(dir.get())) {
        struct stat st;
        if (entry->d_name[0] == '.' || fstatat(dirfd(dir.get()), entry->d_name, &st, 0) < 0)
            continue;
        if (!reading)
            continue;
        unique_fd fd(openat(dirfd(dir.get()), entry->d_name, O_RDONLY | O_CLOEXEC));
        if (read(fd.get(), block, sizeof block) < 0)
            fail(entry->d_name);
    }
}

static user_node_t *new_inbox(const std::string &path)
{
    return new_user_node(path.c_str(), pw_req_ptr(new_pw("joe", nullptr, nullptr, 0, 0)), nullptr).release();
}

// What a request for the newest faxes does where it cannot be told what has changed; see polling.cc for the
// rest.
static void list(user_node_t *user, u_int faxes)
{
    err_t error;
    if (user->index)
        user->index->watch.doubt();
    if (!get_index(user, 0, 0, 1, 0, &error) || get_fax_count(user) != faxes) {
        fprintf(stderr, "listing failed: %u of %u\n", get_fax_count(user), faxes);
        _exit(1);
    }
}

static double bench_inbox(int faxes)
{
    std::string path = root + "/inbox" + std::to_string(faxes);
    make_inbox(path, faxes);
    auto n = static_cast<u_int>(faxes);
    user_node_t *user = new_inbox(path);

    comparison_t first = compare([&] { bare_scan(path, true); }, [] {}, [&] { list(user, n); });
    print_row("first load", faxes, first);
    print_row("again, nothing changed", faxes,
              compare([&] { bare_scan(path, false); }, [&] { list(user, n); }, [&] { list(user, n); }));

    std::string added = path + "/added.fax";
    auto load_and_add = [&] {
        unlink(added.c_str());
        list(user, n);
        write_fax(added, 3 * faxes);
    };
    print_row("again, one fax added", faxes,
              compare([&] { bare_scan(path, false); }, load_and_add, [&] { list(user, n + 1); }));
    free_user_node(user);
    std::filesystem::remove_all(path);
    return first.ours.ms;
}

static void bench_configuration(int n)
{
    std::string path = root + "/site" + std::to_string(n);
    make_configuration(path, n);
    std::string user_path = path + "/USER_LIST.info", modem_path = path + "/MODEMS.info";
    auto bare = [&] {
        char block[65536];
        unique_fd fd(open(user_path.c_str(), O_RDONLY | O_CLOEXEC));
        while (read(fd.get(), block, sizeof block) > 0)
            continue;
        struct stat st;
        for (int i = 0; i < n; i++)
            if (stat((path + "/user" + std::to_string(i)).c_str(), &st) < 0)
                fail("stat");
    };
    user_info = user_path.data();
    modem_info = modem_path.data();
    auto load = [&] {
        if (!update_lists() || users.by_name.size() < static_cast<size_t>(n))
            _exit(1);
    };
    print_row("user list, first load", n,
              compare(
                  bare, [] {}, load));
    auto reload = [&] {
        if (!read_lists() || !settle_users())
            _exit(1);
    };
    print_row("user list, loaded again", n, compare(bare, load, reload));
}

static int run(const char *parent)
{
    root = std::string(parent) + "/bench_listing.XXXXXX";
    if (!mkdtemp(root.data()))
        fail(root.c_str());
    atexit([] { std::filesystem::remove_all(root); });  // measured processes end by _exit
    struct statfs fs;
    if (statfs(parent, &fs) < 0)
        fail(parent);
    printf("in %s (file system type 0x%lx), medians of %d runs\n", parent, static_cast<long>(fs.f_type),
           runs);
    printf("%-28s %7s %10s %10s %7s %12s %9s\n", "", "n", "bare ms", "ours ms", "ratio", "peak KiB",
           "bytes/n");
    Update_slop = 0;
    snprintf(dvWork_dir, sizeof dvWork_dir, "%s", root.c_str());  // first loads reserve fax ids there
    bench_inbox(1000);
    double at_10000 = bench_inbox(10000);
    double at_100000 = bench_inbox(100000);
    printf("first load, 100,000 against 10,000 faxes: %.1f times\n", at_100000 / at_10000);
    bench_configuration(2000);
    bench_configuration(20000);
    return 0;
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    return faxtray::run(argc > 1 ? argv[1] : "/dev/shm");
}
