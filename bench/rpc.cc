// How close does faxtrayd come to what the RPC library can do? NULL calls and 256 KiB reads (of the first
// chunk of a fax, for which the password is checked and the access log gets a line, and of the next one) over
// loopback, from 1, 8 and 64 connections, against
//   - a bare libtirpc server of a few lines (svctcp_create's default buffers, svc_run) that opens,
//     reads and closes the same file for every call,
//   - the same answering from memory, which no server of files can do,
//   - raw TCP: a loop that answers as many bytes from memory without RPC, and
//   - raw TCP that opens, reads and closes the same file, and sends with one call.
// Usage: bench_rpc USER FILE PID: faxtrayd runs on this host with that process id, and the user's inbox holds
// FILE alone, of 512 KiB or more. run-rpc.sh sets that up in a private namespace.
//
// One client process keeps one call outstanding on every connection. The servers take turns, a short
// round each, so that what else runs here meets all alike; the medians of the rounds count. On a busy
// machine look at the processor time that a server spends on a call rather than at the rates.
#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string>
#include <vector>

#include "client/inbox_client.h"
#include "protocol/xdr_records.h"
#include "rpc_calls.h"

namespace faxtray {

static constexpr int rounds = 15;
static constexpr double round_seconds = 0.15;
static constexpr size_t read_reply = 24 + 8 + MAX_READ_SIZE;  // RPC header; type, length, bytes

// The servers.

static const char *file_to_read = nullptr;  // null: answer from memory

static void read_file(char *bytes, size_t size, off_t offset)
{
    const int fd = open(file_to_read, O_RDONLY);
    if (fd < 0 || pread(fd, bytes, size, offset) != static_cast<ssize_t>(size))
        give_up(file_to_read);
    close(fd);
}

static void bare_dispatch(svc_req *request, SVCXPRT *transport)
{
    static std::string bytes(MAX_READ_SIZE, 'x');
    client_fax_req_t argument = {};
    in_res_t result = {};
    if (request->rq_proc == TRAYD_NULL) {
        svc_sendreply(transport, reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(xdr_void)),
                      nullptr);
        return;
    }
    const auto xdr_argument = reinterpret_cast<xdrproc_t>(xdr_client_fax_req_t);
    svc_getargs(transport, xdr_argument, &argument);
    if (file_to_read)
        read_file(bytes.data(), argument.size, argument.offset);
    result.res_type = RES_FAX;
    result.fax = {argument.size, bytes.data()};
    svc_sendreply(transport, reinterpret_cast<xdrproc_t>(xdr_in_res_t), &result);
    svc_freeargs(transport, xdr_argument, &argument);
}

static void tell_port(int pipe, u_short port)
{
    if (write(pipe, &port, sizeof port) != sizeof port)
        give_up("write");
    close(pipe);
}

static void bare_server(int port_pipe)
{
    SVCXPRT *transport = svctcp_create(RPC_ANYSOCK, 0, 0);
    if (!transport || !svc_register(transport, IN_PROG, IN_VERS, bare_dispatch, 0))
        give_up("bare server");
    tell_port(port_pipe, transport->xp_port);
    svc_run();
}

static void bare_memory_server(int port_pipe)
{
    file_to_read = nullptr;
    bare_server(port_pipe);
}

// Answers a call, which is known by its length: one longer than a NULL call's 40 bytes is a read.
static bool answer_raw(int fd)
{
    static char reply[4 + read_reply];
    char call[1024];
    const ssize_t n = read(fd, call, sizeof call);
    if (n <= 0)
        return false;
    const size_t length = n > 4 + 40 ? read_reply : null_reply;
    if (file_to_read && length == read_reply)
        read_file(reply + sizeof reply - MAX_READ_SIZE, MAX_READ_SIZE, 0);
    const uint32_t mark = htonl(0x80000000U | static_cast<uint32_t>(length));
    memcpy(reply, &mark, sizeof mark);
    for (size_t sent = 0; sent < 4 + length;) {
        const ssize_t m = write(fd, reply + sent, 4 + length - sent);
        if (m <= 0)
            break;
        sent += static_cast<size_t>(m);
    }
    return true;
}

static void raw_file_server(int port_pipe)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(listener, 128) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        give_up("listen");
    tell_port(port_pipe, ntohs(address.sin_port));
    std::vector<pollfd> fds{{listener, POLLIN, 0}};
    for (;;) {
        poll(fds.data(), fds.size(), -1);
        for (size_t i = fds.size(); i-- > 0;) {
            if (!fds[i].revents)
                continue;
            if (fds[i].fd == listener) {
                fds.push_back({accept(listener, nullptr, nullptr), POLLIN, 0});
            } else if (!answer_raw(fds[i].fd)) {
                close(fds[i].fd);
                fds.erase(fds.begin() + static_cast<long>(i));
            }
        }
    }
}

static void raw_server(int port_pipe)
{
    file_to_read = nullptr;
    raw_file_server(port_pipe);
}

namespace {

struct server_t {
    u_short port;
    clockid_t clock;  // of the processor time it has used
};

struct result_t {
    double rate;  // calls a second
    double cost;  // processor seconds of the server a call
};

}  // namespace

static clockid_t clock_of(pid_t pid)
{
    clockid_t clock;
    if (clock_getcpuclockid(pid, &clock) != 0)
        give_up("clock_getcpuclockid");
    return clock;
}

// Starts `server` as a child that ends with this process.
static server_t start(void (*server)(int))
{
    int port_pipe[2];
    u_short port;
    if (pipe(port_pipe) != 0)
        give_up("pipe");
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setsid();                  // as daemons do: the scheduler treats sessions apart
        signal(SIGPIPE, SIG_IGN);  // rounds end with replies under way
        close(port_pipe[0]);
        server(port_pipe[1]);
        _exit(1);
    }
    close(port_pipe[1]);
    if (read(port_pipe[0], &port, sizeof port) != sizeof port)
        give_up("a server's port");
    close(port_pipe[0]);
    return {port, clock_of(child)};
}

// The client.

// The id of the oldest fax of `user`.
static faxid_t first_fax(const char *user)
{
    inbox_client client({.user = user, .password_hash = ""});
    std::optional<fax_entry> fax;
    if (!client.connect("localhost") || !client.get_fax_info({}, &fax) || !fax) {
        fprintf(stderr, "no fax in %s's inbox: %s\n", user, client.failure().message.c_str());
        exit(1);
    }
    return fax->id;
}

// How `server` answers `connections` at once.
static result_t run_round(const server_t &server, int connections, const std::string &call, size_t reply_size)
{
    std::vector<caller_t> callers;
    std::vector<pollfd> fds;
    for (int i = 0; i < connections; i++) {
        callers.emplace_back(server.port);
        fds.push_back({callers.back().fd(), POLLIN, 0});
    }
    for (caller_t &caller : callers)
        caller.send(call);

    const double begin = now(CLOCK_MONOTONIC), used = now(server.clock);
    double seconds = 0;
    long calls = 0;
    while ((seconds = now(CLOCK_MONOTONIC) - begin) < round_seconds) {
        poll(fds.data(), fds.size(), 1000);
        for (size_t i = 0; i < fds.size(); i++) {
            const size_t size = fds[i].revents ? callers[i].receive() : 0;
            if (size == 0)
                continue;
            if (size != reply_size) {
                fprintf(stderr, "a reply of %zu bytes, not %zu\n", size, reply_size);
                exit(1);
            }
            calls++;
            callers[i].send(call);
        }
    }
    const double cost = (now(server.clock) - used) / static_cast<double>(calls);
    return {static_cast<double>(calls) / seconds, cost};
}

static constexpr int servers = 5;

static void measure(const char *what, const server_t (&all)[servers], const std::string &call,
                    size_t reply_size, double unit)
{
    for (const int connections : {1, 8, 64}) {
        std::vector<double> rates[servers], costs[servers];
        for (int round = 0; round < rounds; round++)
            for (int i = 0; i < servers; i++) {
                const result_t result = run_round(all[i], connections, call, reply_size);
                rates[i].push_back(result.rate * unit);
                costs[i].push_back(result.cost * 1e6);
            }
        printf("| %-10s | %4d |", what, connections);
        for (const auto &each : rates)
            printf(" %7.0f", median(each));
        printf(" | %4.2f %4.2f |", median(rates[0]) / median(rates[1]), median(rates[0]) / median(rates[4]));
        for (const auto &each : costs)
            printf(" %5.1f", median(each));
        printf(" |\n");
        fflush(stdout);
    }
}

static int bench(const char *user, const char *file, pid_t daemon)
{
    std::string name = user, empty;
    pw_req_t pw = {name.data(), empty.data(), empty.data(), 0, 0};
    client_fax_req_t first = {&pw, first_fax(user), MAX_READ_SIZE, 0}, next = first;
    next.offset = MAX_READ_SIZE;
    file_to_read = file;
    const server_t all[servers] = {{daemon_port(), clock_of(daemon)},
                                   start(bare_server),
                                   start(bare_memory_server),
                                   start(raw_server),
                                   start(raw_file_server)};

    puts("Servers: faxtrayd, bare RPC, bare RPC from memory, raw TCP from memory, raw TCP; ratios: faxtrayd\n"
         "to bare RPC, and to raw TCP.\n"
         "|            | conn | calls/s or MB/s                         | ratios    | server's us a call     "
         "   "
         "    |\n"
         "|------------|-----:|-----------------------------------------|----------:|------------------------"
         "---"
         "----|");
    measure("NULL", all, make_call(TRAYD_NULL, nullptr, nullptr), null_reply, 1);
    const auto xdr = reinterpret_cast<xdrproc_t>(xdr_client_fax_req_t);
    measure("first 256K", all, make_call(GET_FAX, xdr, &first), read_reply, MAX_READ_SIZE / 1e6);
    measure("next 256K", all, make_call(GET_FAX, xdr, &next), read_reply, MAX_READ_SIZE / 1e6);
    return 0;
}

}  // namespace faxtray

int main(int argc, char *argv[])
{
    if (argc != 4) {
        fprintf(stderr, "usage: %s USER FILE PID\n", argv[0]);
        return 2;
    }
    return faxtray::bench(argv[1], argv[2], static_cast<pid_t>(strtol(argv[3], nullptr, 10)));
}
