// How close does faxtrayd come to what the RPC library can do? NULL calls and 256 KiB reads over
// loopback, from 1, 8 and 64 connections, against
//   - a bare libtirpc server of a few lines (svctcp_create's default buffers, svc_run) that opens,
//     reads and closes the same file for every call,
//   - the same answering from memory, which no server of files can do, and
//   - raw TCP: a loop that answers as many bytes from memory without RPC.
// Usage: bench_rpc USER FILE PID: faxtrayd runs on this host with that process id, and the user's inbox holds
// FILE alone, of 256 KiB or more. run-rpc.sh sets that up in a private namespace.
//
// One client process keeps one call outstanding on every connection. The servers take turns, a short
// round each, so that what else runs here meets all alike; the medians of the rounds count. On a busy
// machine look at the processor time that a server spends on a call rather than at the rates.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <rpc/pmap_clnt.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "protocol/xdr_records.h"

using namespace faxtray;

namespace {

constexpr int Rounds = 15;
constexpr double Round_seconds = 0.15;
constexpr size_t Read_reply = 24 + 8 + MAX_READ_SIZE;  // RPC header; type, length, bytes
constexpr size_t Null_reply = 24;                      // RPC header

[[noreturn]] void give_up(const char *what)
{
    perror(what);
    exit(1);
}

// The servers.

const char *file_to_read = nullptr;  // null: answer from memory

void bare_dispatch(svc_req *request, SVCXPRT *transport)
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
    if (file_to_read) {
        const int fd = open(file_to_read, O_RDONLY);
        if (fd < 0 || pread(fd, bytes.data(), argument.size, argument.offset) != argument.size)
            give_up(file_to_read);
        close(fd);
    }
    result.res_type = RES_FAX;
    result.fax = {argument.size, bytes.data()};
    svc_sendreply(transport, reinterpret_cast<xdrproc_t>(xdr_in_res_t), &result);
    svc_freeargs(transport, xdr_argument, &argument);
}

void tell_port(int pipe, u_short port)
{
    if (write(pipe, &port, sizeof port) != sizeof port)
        give_up("write");
    close(pipe);
}

void bare_server(int port_pipe)
{
    SVCXPRT *transport = svctcp_create(RPC_ANYSOCK, 0, 0);
    if (!transport || !svc_register(transport, IN_PROG, IN_VERS, bare_dispatch, 0))
        give_up("bare server");
    tell_port(port_pipe, transport->xp_port);
    svc_run();
}

void bare_memory_server(int port_pipe)
{
    file_to_read = nullptr;
    bare_server(port_pipe);
}

// Takes calls by their length; one longer than a NULL call's 40 bytes is a read.
void raw_server(int port_pipe)
{
    static char reply[4 + Read_reply];
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
                continue;
            }
            char call[1024];
            const ssize_t n = read(fds[i].fd, call, sizeof call);
            if (n <= 0) {
                close(fds[i].fd);
                fds.erase(fds.begin() + static_cast<long>(i));
                continue;
            }
            const size_t length = n > 4 + 40 ? Read_reply : Null_reply;
            const uint32_t mark = htonl(0x80000000U | static_cast<uint32_t>(length));
            memcpy(reply, &mark, sizeof mark);
            for (size_t sent = 0; sent < 4 + length;) {
                const ssize_t m = write(fds[i].fd, reply + sent, 4 + length - sent);
                if (m <= 0)
                    break;
                sent += static_cast<size_t>(m);
            }
        }
    }
}

struct server_t {
    u_short port;
    clockid_t clock;  // of the processor time it has used
};

clockid_t clock_of(pid_t pid)
{
    clockid_t clock;
    if (clock_getcpuclockid(pid, &clock) != 0)
        give_up("clock_getcpuclockid");
    return clock;
}

double now(clockid_t clock)
{
    struct timespec t;
    clock_gettime(clock, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// Starts `server` as a child that ends with this process.
server_t start(void (*server)(int))
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

sockaddr_in local(u_short port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// The id of the oldest fax of `user`, asked of the daemon through libtirpc's own client.
faxid_t first_fax(const char *user)
{
    CLIENT *client = clnt_create("localhost", IN_PROG, IN_VERS, "tcp");
    if (!client) {
        clnt_pcreateerror("faxtrayd");
        exit(1);
    }
    std::string name = user, empty;
    pw_req_t pw = {name.data(), empty.data(), empty.data(), 0, 0};
    index_req_t request = {&pw, 0, 1, 0, 0};
    in_res_t result = {};
    const struct timeval timeout = {10, 0};
    const clnt_stat status = clnt_call(client, GET_INDEX, reinterpret_cast<xdrproc_t>(xdr_index_req_t),
                                       &request, reinterpret_cast<xdrproc_t>(xdr_in_res_t), &result, timeout);
    if (status != RPC_SUCCESS || result.res_type != RES_INDEX || !result.index->head) {
        fprintf(stderr, "no fax in %s's inbox: status %d, type %d\n", user, status, result.res_type);
        exit(1);
    }
    return result.index->head->faxid;
}

// A whole call, record mark and all (RFC 5531 sections 9 and 11).
std::string make_call(u_long procedure, client_fax_req_t *argument)
{
    char bytes[1024];
    XDR xdrs;
    xdrmem_create(&xdrs, bytes + 4, sizeof bytes - 4, XDR_ENCODE);
    rpc_msg message = {};
    message.rm_direction = CALL;
    message.rm_call.cb_rpcvers = RPC_MSG_VERSION;
    message.rm_call.cb_prog = IN_PROG;
    message.rm_call.cb_vers = IN_VERS;
    message.rm_call.cb_proc = static_cast<rpcproc_t>(procedure);
    message.rm_call.cb_cred = message.rm_call.cb_verf = _null_auth;
    if (!xdr_callmsg(&xdrs, &message) || (argument && !xdr_client_fax_req_t(&xdrs, argument)))
        give_up("encode");
    const uint32_t length = xdr_getpos(&xdrs);
    const uint32_t mark = htonl(0x80000000U | length);
    memcpy(bytes, &mark, sizeof mark);
    return {bytes, 4 + length};
}

// One connection with a call outstanding: how much of its reply has arrived.
struct connection_t {
    int fd;
    char mark[4];
    size_t mark_bytes = 0;  // of the current fragment's mark
    size_t left = 0;        // of the current fragment
    bool last = false;      // fragment
    size_t reply = 0;       // bytes of the reply so far
};

void send_call(connection_t &c, const std::string &call)
{
    if (write(c.fd, call.data(), call.size()) != static_cast<ssize_t>(call.size()))
        give_up("write");
}

// Follows the record marks through `n` bytes of a reply; true when it is complete.
bool take(connection_t &c, const char *bytes, size_t n)
{
    while (n > 0) {
        if (c.left == 0) {
            const size_t part = std::min(n, sizeof c.mark - c.mark_bytes);
            memcpy(c.mark + c.mark_bytes, bytes, part);
            c.mark_bytes += part;
            bytes += part;
            n -= part;
            if (c.mark_bytes < sizeof c.mark)
                return false;
            uint32_t mark;
            memcpy(&mark, c.mark, sizeof mark);
            mark = ntohl(mark);
            c.last = mark & 0x80000000U;
            c.left = mark & 0x7fffffffU;
            c.mark_bytes = 0;
        }
        const size_t part = std::min(n, c.left);
        c.left -= part;
        c.reply += part;
        bytes += part;
        n -= part;
        if (c.left == 0 && c.last)
            return true;
    }
    return false;
}

struct result_t {
    double rate;  // calls a second
    double cost;  // processor seconds of the server a call
};

// How `server` answers `connections` at once.
result_t run_round(const server_t &server, int connections, const std::string &call, size_t reply_size)
{
    static char bytes[1 << 20];
    std::vector<connection_t> all;
    std::vector<pollfd> fds;
    for (int i = 0; i < connections; i++) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        const sockaddr_in address = local(server.port);
        const int on = 1;
        if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            give_up("connect");
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        all.push_back({fd, {}});
        fds.push_back({fd, POLLIN, 0});
    }
    for (connection_t &c : all)
        send_call(c, call);

    const double begin = now(CLOCK_MONOTONIC), used = now(server.clock);
    double seconds = 0;
    long calls = 0;
    while ((seconds = now(CLOCK_MONOTONIC) - begin) < Round_seconds) {
        poll(fds.data(), fds.size(), 1000);
        for (size_t i = 0; i < fds.size(); i++) {
            if (!fds[i].revents)
                continue;
            const ssize_t n = read(fds[i].fd, bytes, sizeof bytes);
            if (n <= 0)
                give_up("read");
            if (!take(all[i], bytes, static_cast<size_t>(n)))
                continue;
            if (all[i].reply != reply_size) {
                fprintf(stderr, "a reply of %zu bytes, not %zu\n", all[i].reply, reply_size);
                exit(1);
            }
            all[i].reply = 0;
            calls++;
            send_call(all[i], call);
        }
    }
    const double cost = (now(server.clock) - used) / static_cast<double>(calls);
    for (const connection_t &c : all)
        close(c.fd);
    return {static_cast<double>(calls) / seconds, cost};
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

constexpr int Servers = 4;

void measure(const char *what, const server_t (&servers)[Servers], const std::string &call, size_t reply_size,
             double unit)
{
    for (const int connections : {1, 8, 64}) {
        std::vector<double> rates[Servers], costs[Servers];
        for (int round = 0; round < Rounds; round++)
            for (int i = 0; i < Servers; i++) {
                const result_t result = run_round(servers[i], connections, call, reply_size);
                rates[i].push_back(result.rate * unit);
                costs[i].push_back(result.cost * 1e6);
            }
        printf("| %-10s | %4d |", what, connections);
        for (const auto &each : rates)
            printf(" %7.0f", median(each));
        printf(" | %7.2f |", median(rates[0]) / median(rates[1]));
        for (const auto &each : costs)
            printf(" %6.1f", median(each));
        printf(" | %7.2f |\n", median(costs[1]) / median(costs[0]));
        fflush(stdout);
    }
}

}  // namespace

int main(int argc, char *argv[])
{
    if (argc != 4) {
        fprintf(stderr, "usage: %s USER FILE PID\n", argv[0]);
        return 2;
    }
    sockaddr_in address = local(0);
    const u_short port = pmap_getport(&address, IN_PROG, IN_VERS, IPPROTO_TCP);
    std::string user = argv[1], empty;
    pw_req_t pw = {user.data(), empty.data(), empty.data(), 0, 0};
    client_fax_req_t read_request = {&pw, first_fax(argv[1]), MAX_READ_SIZE, 0};
    file_to_read = argv[2];
    const pid_t daemon = static_cast<pid_t>(strtol(argv[3], nullptr, 10));
    const server_t servers[Servers] = {
        {port, clock_of(daemon)}, start(bare_server), start(bare_memory_server), start(raw_server)};

    puts("Four servers: faxtrayd, bare RPC, bare RPC from memory, raw TCP; ratios: faxtrayd to bare RPC.");
    puts("|            | conn | calls/s or MB/s                 | ratio   | server's us a call          | "
         "inverse |");
    puts("|------------|-----:|---------------------------------|--------:|-----------------------------|----"
         "----:|");
    measure("NULL", servers, make_call(TRAYD_NULL, nullptr), Null_reply, 1);
    measure("read 256K", servers, make_call(GET_FAX, &read_request), Read_reply, MAX_READ_SIZE / 1e6);
    return 0;
}
