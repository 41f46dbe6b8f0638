// What do 10,000 clients that are connected and say nothing cost? The daemon's memory (not the kernel's,
// which has the sockets), and the time in which another client gets the answer to a NULL call: before they
// connect, beside them, and after they have gone. Usage: bench_rpc_idle PID: faxtrayd runs on this host with
// that process id. run-rpc.sh sets that up.
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "protocol/records.h"
#include "rpc_calls.h"
#include "util/owned.h"

namespace faxtray {

static constexpr int idle_clients = 10000;
static constexpr int calls = 100000;

// Microseconds for a NULL call and its reply, the median of many.
static double null_time()
{
    const std::string call = make_call(TRAYD_NULL, nullptr, nullptr);
    caller_t caller(daemon_port());
    std::vector<double> times;
    for (int i = 0; i < calls; i++) {
        const double begin = now(CLOCK_MONOTONIC);
        caller.send(call);
        while (caller.receive() != null_reply)
            continue;
        times.push_back(1e6 * (now(CLOCK_MONOTONIC) - begin));
    }
    return median(times);
}

// Megabytes of memory that a process has.
static double resident(const char *pid)
{
    const file_ptr status(fopen((std::string("/proc/") + pid + "/status").c_str(), "r"));
    char line[256];
    while (status && fgets(line, sizeof line, status.get()))
        if (strncmp(line, "VmRSS:", 6) == 0)
            return strtod(line + 6, nullptr) / 1024;
    give_up("VmRSS");
}

static void report(const char *when, const char *pid)
{
    const double memory = resident(pid), time = null_time();
    printf("%-24s %11.1f %14.2f\n", when, memory, time);
}

static int bench(const char *pid)
{
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    printf("%-24s %11s %14s\n", "", "memory, MB", "NULL, us");
    null_time();  // whatever a first client costs
    report("before", pid);
    std::vector<caller_t> idle;
    const u_short port = daemon_port();
    for (int i = 0; i < idle_clients; i++)
        idle.emplace_back(port);
    report("with 10,000 idle clients", pid);
    for (const caller_t &caller : idle) {
        char byte;
        if (recv(caller.fd(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0) {
            fprintf(stderr, "The daemon has closed a connection.\n");
            return 1;
        }
    }
    idle.clear();
    sleep(2);
    report("two seconds after", pid);
    return 0;
}

}  // namespace faxtray

int main(int argc, char *argv[])
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s PID\n", argv[0]);
        return 2;
    }
    return faxtray::bench(argv[1]);
}
