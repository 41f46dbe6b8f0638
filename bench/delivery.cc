// Question: how many deliveries into an inbox a second, and how much of that is waiting for the disk?
//
// Data: a fax of 100 KB (a header and noise as its MH page, which nothing here decodes), delivered to one
// recipient and to a group of 50, in a directory of their own below the argument (default /var/tmp), removed
// at the end. `bare` does for each delivery what cannot be left out: a copy of the fax is written in blocks
// of 8 KiB, put on the disk, renamed, and its new name put on the disk. The last columns do the same with
// fsync and fdatasync switched off. Every figure is the median of several runs, taken in turn.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "deliver/deliver.h"
#include "disk/work_note.h"
#include "faxfile/fax_header.h"
#include "util/owned.h"
#include "util/settings.h"

static bool to_disk;  // whether these two do anything

extern "C" int fsync(int fd)
{
    return to_disk ? static_cast<int>(syscall(SYS_fsync, fd)) : 0;
}

extern "C" int fdatasync(int fd)
{
    return to_disk ? static_cast<int>(syscall(SYS_fdatasync, fd)) : 0;
}

namespace faxtray {

constexpr int runs = 7;
constexpr int rounds = 20;  // of one delivery, or of one to the group, a run
constexpr int members = 50;
constexpr size_t fax_size = 100 * 1000;

static std::string root, fax;

[[noreturn]] static void fail(const char *what)
{
    perror(what);
    exit(1);
}

static void make_fax()
{
    fax = root + "/incoming/x3.fax";
    unique_fd fd(open(fax.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    fax_header_ptr header(new_fax_header("#PAGES", "1"));
    std::string page(fax_size, '\0');
    std::mt19937 noise(1);
    for (char &byte : page)
        byte = static_cast<char>(noise());
    if (!fd || !write_fax_header(fd.get(), header.get()) ||
        write(fd.get(), page.data(), page.size()) != static_cast<ssize_t>(page.size()))
        fail(fax.c_str());
}

static std::string inbox(int member)
{
    return root + "/inboxes/member" + std::to_string(member);
}

static av_list_ptr recipient(int member)
{
    av_list_ptr record(new_av_list(("member" + std::to_string(member)).c_str()));
    av_put(record.get(), "delivery_method", "faxtray");
    av_put(record.get(), "delivery_dir_root", (root + "/inboxes").c_str());
    return record;
}

static void deliver_bare(int member)
{
    const std::string copy = root + "/incoming/copy", target = inbox(member) + "/x30_.fax";
    unique_fd in(open(fax.c_str(), O_RDONLY | O_CLOEXEC));
    unique_fd out(open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    char block[8192];
    for (ssize_t n; (n = read(in.get(), block, sizeof block)) > 0;)
        if (write(out.get(), block, static_cast<size_t>(n)) != n)
            fail(copy.c_str());
    unique_fd directory(open(inbox(member).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fsync(out.get()) != 0 || rename(copy.c_str(), target.c_str()) != 0 || fsync(directory.get()) != 0)
        fail(target.c_str());
}

static void deliver_ours(int member)
{
    char message[4096], destination[4096];
    if (deliver_fax(recipient(member).get(), fax.c_str(), message, destination, nullptr, 0) != DELIVERED)
        fail(message);
}

// Deliveries a second, inboxes emptied after each round.
static double rate(int recipients, const std::function<void(int)> &deliver)
{
    std::chrono::duration<double> spent(0);
    for (int round = 0; round < rounds; round++) {
        auto start = std::chrono::steady_clock::now();
        note_begin();
        for (int member = 0; member < recipients; member++)
            deliver(member);
        note_end();
        spent += std::chrono::steady_clock::now() - start;
        for (int member = 0; member < recipients; member++)
            if (unlink((inbox(member) + "/x30_.fax").c_str()) != 0)
                fail("unlink");
    }
    return rounds * recipients / spent.count();
}

static double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

static void measure(const char *name, int recipients)
{
    std::vector<double> bare[2], ours[2];
    for (int run = 0; run < runs; run++)
        for (bool disk : {true, false}) {
            to_disk = disk;
            bare[disk].push_back(rate(recipients, deliver_bare));
            ours[disk].push_back(rate(recipients, deliver_ours));
        }
    double figures[] = {median(bare[1]), median(ours[1]), median(bare[0]), median(ours[0])};
    printf("%-14s %10.0f %10.0f %7.2f %10.0f %10.0f %7.2f\n", name, figures[0], figures[1],
           figures[1] / figures[0], figures[2], figures[3], figures[3] / figures[2]);
}

static int bench(const char *directory)
{
    root = std::string(directory) + "/faxtray_bench_XXXXXX";
    if (!mkdtemp(root.data()))
        fail(root.c_str());
    for (const char *name : {"/incoming", "/work"})
        std::filesystem::create_directories(root + name);
    for (int member = 0; member < members; member++)
        std::filesystem::create_directories(inbox(member));
    snprintf(dvWork_dir, sizeof dvWork_dir, "%s/work", root.c_str());
    make_fax();

    printf("deliveries a second in %s, medians of %d runs\n%-14s %29s %29s\n%-14s", directory, runs, "",
           "to the disk", "without fsync", "");
    for (int i = 0; i < 2; i++)
        printf(" %10s %10s %7s", "bare", "ours", "ratio");
    puts("");
    measure("one recipient", 1);
    measure("group of 50", members);
    std::filesystem::remove_all(root);
    return 0;
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    return faxtray::bench(argc > 1 ? argv[1] : "/var/tmp");
}
