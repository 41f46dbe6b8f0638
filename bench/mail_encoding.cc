// What do the mail encoders take beside coreutils' base64 and sharutils' uuencode?
//
// usage: bench_mail_encoding [DIRECTORY] [MEGABYTES]      (default /dev/shm 256)
//
// One file of random bytes is encoded into /dev/null: by encode_base64, by "base64 -w 72", by
// encode_uuencode and by "uuencode", in turn, each in a process of its own; medians of 9 rounds. Each process
// also encodes a file of one megabyte, and the last columns are its peak memory then and with the large one.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "deliver/mail_encoding.h"
#include "util/owned.h"

namespace faxtray {

constexpr int rounds = 9;

struct run_t {
    double seconds;
    long peak_kb;
};

static void require(bool good, const char *what)
{
    if (good)
        return;
    perror(what);
    exit(1);
}

// Runs `body` in a child with standard output in /dev/null.
static run_t run(const std::function<int()> &body)
{
    auto start = std::chrono::steady_clock::now();
    pid_t pid = fork();
    require(pid >= 0, "fork");
    if (pid == 0) {
        require(freopen("/dev/null", "w", stdout) != nullptr, "/dev/null");
        _exit(body());
    }
    int status = 0;
    struct rusage usage = {};
    require(wait4(pid, &status, 0, &usage) == pid, "wait4");
    std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    if (status != 0) {
        fprintf(stderr, "an encoder failed\n");
        exit(1);
    }
    return {took.count(), usage.ru_maxrss};
}

static int encode(int (*encoder)(FILE *, FILE *), const std::string &path)
{
    file_ptr in(fopen(path.c_str(), "r"));
    return in && encoder(in.get(), stdout) && fflush(stdout) == 0 ? 0 : 1;
}

static int execute(std::vector<std::string> args)
{
    std::vector<char *> argv;
    for (std::string &arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    perror(argv[0]);
    return 127;
}

static void write_random(const std::string &path, size_t megabytes)
{
    std::mt19937_64 random(1);
    std::vector<uint64_t> block((1 << 20) / sizeof(uint64_t));
    std::ofstream out(path, std::ios::binary);
    for (size_t n = 0; n < megabytes; n++) {
        std::generate(block.begin(), block.end(), std::ref(random));
        out.write(reinterpret_cast<const char *>(block.data()), 1 << 20);
    }
    out.close();
    require(out.good(), path.c_str());
}

static int measure(const std::string &directory, size_t megabytes)
{
    const std::string small = directory + "/bench_mail_small", large = directory + "/bench_mail_large";
    write_random(small, 1);
    write_random(large, megabytes);

    struct contestant_t {
        const char *name;
        std::function<int(const std::string &)> encode;
        std::vector<double> seconds;
        long small_kb, large_kb;
    };
    contestant_t contestants[] = {
        {"encode_base64", [](auto &path) { return encode(encode_base64, path); }, {}, 0, 0},
        {"base64",
         [](auto &path) {
             return execute({"base64", "-w", "72", path});
         },
         {},
         0,
         0},
        {"encode_uuencode", [](auto &path) { return encode(encode_uuencode, path); }, {}, 0, 0},
        {"uuencode",
         [](auto &path) {
             return execute({"uuencode", path, "fax"});
         },
         {},
         0,
         0},
    };
    for (contestant_t &c : contestants)
        c.small_kb = run([&] { return c.encode(small); }).peak_kb;
    for (int round = 0; round < rounds; round++)
        for (contestant_t &c : contestants) {
            run_t result = run([&] { return c.encode(large); });
            c.seconds.push_back(result.seconds);
            c.large_kb = result.peak_kb;
        }
    unlink(small.c_str());
    unlink(large.c_str());

    printf("%zu MB in %s, medians of %d runs\n", megabytes, directory.c_str(), rounds);
    printf("%-16s %8s %8s %12s %12s\n", "", "MB/s", "ratio", "peak KiB 1", "peak KiB all");
    double ours = 0;
    for (contestant_t &c : contestants) {
        std::sort(c.seconds.begin(), c.seconds.end());
        double rate = static_cast<double>(megabytes) / c.seconds[rounds / 2];
        bool is_ours = c.name[0] == 'e';
        char ratio[32] = "";
        if (is_ours)
            ours = rate;
        else
            snprintf(ratio, sizeof ratio, "%.2f", ours / rate);
        printf("%-16s %8.0f %8s %12ld %12ld\n", c.name, rate, ratio, c.small_kb, c.large_kb);
    }
    return 0;
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    size_t megabytes = argc > 2 ? strtoul(argv[2], nullptr, 10) : 256;
    return faxtray::measure(argc > 1 ? argv[1] : "/dev/shm", megabytes > 0 ? megabytes : 1);
}
