// Requests that wait do so in their connections, undecoded: when its turn comes, one is served like any
// other.
#include "daemon/delivery_queue.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "daemon/replies.h"
#include "daemon/signals.h"
#include "deliver/admin_notice.h"
#include "disk/work_note.h"
#include "protocol/xdr_records.h"
#include "rpc/rpc_loop.h"
#include "util/child_process.h"
#include "util/io.h"
#include "util/owned.h"
#include "util/session.h"

namespace faxtray {

// So many may wait without their clients: the connections of others are closed when these hang up.
static constexpr size_t most_kept = 64;

namespace {

// The delivery that is being carried out.
struct running_t {
    pid_t child = 0;  // 0: none
    uint64_t connection = 0;
    void (*conclude)() = nullptr;
    unique_fd pipe;        // the child's report, until its end
    std::string received;  // of it so far
    bool lost = false;     // a part of it, for want of memory
};

}  // namespace

static running_t running;
static std::deque<uint64_t> waiting;  // connections, in the order of arrival
static bool is_next;                  // the request being served is the one whose turn it is

// In the child

// What the pipe carries: the encoded result, with its length in front. "" without memory.
static std::string report_of(in_res_t *result)
try {
    std::string encoded(xdr_sizeof(reinterpret_cast<xdrproc_t>(xdr_in_res_t), result), '\0');
    XDR xdrs;
    xdrmem_create(&xdrs, encoded.data(), static_cast<u_int>(encoded.size()), XDR_ENCODE);
    const size_t length = encoded.size();
    return xdr_in_res_t(&xdrs, result)
               ? std::string(reinterpret_cast<const char *>(&length), sizeof length) + encoded
               : "";
} catch (const std::bad_alloc &) {
    return "";
}

[[noreturn]] static void carry_out_in_child(const delivery_steps_t &steps, client_deliver_req_t *request,
                                            int pipe)
{
    setsid();  // by which the daemon finds our commands, should we die
    rpc_leave();
    admin_notice_init();
    const std::string report = report_of(steps.carry_out(request));
    const bool told = !report.empty() && write_full(pipe, report.data(), report.size());
    fflush(nullptr);
    _exit(told ? 0 : 1);
}

// In the daemon

static void read_report();

// Starts the child; false with errno.
static bool start_child(const delivery_steps_t &steps, client_deliver_req_t *request)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    unique_fd from(ends[0]);
    const unique_fd to(ends[1]);
    if (fcntl(from.get(), F_SETFL, O_NONBLOCK) != 0 || !rpc_watch(from.get(), read_report))
        return false;
    const pid_t child = fork_worker();
    if (child == 0)
        carry_out_in_child(steps, request, to.get());
    if (child < 0) {
        const int error = errno;
        rpc_unwatch(from.get());
        errno = error;
        return false;
    }
    running.child = child;
    running.conclude = steps.conclude;
    running.pipe = std::move(from);
    return true;
}

in_res_t *delivery_take(const delivery_steps_t &steps, client_deliver_req_t *request, SVCXPRT *transport)
{
    static in_res_t failure;
    if (running.child != 0 || (!waiting.empty() && !is_next)) {
        // The place first, which may fail: a connection that is put off and in no queue would wait for ever.
        try {
            waiting.push_back(0);
        } catch (const std::bad_alloc &) {
            return error_reply(failure, IE_SYSTEM, ENOMEM, "Trayd: Not enough memory.");
        }
        waiting.back() = rpc_put_off(transport, waiting.size() <= most_kept);
        return nullptr;
    }
    if (in_res_t *reply = steps.check(request))
        return reply;
    if (!start_child(steps, request))
        return error_reply(failure, IE_SYSTEM, errno, "Trayd: Can't start a delivery: %s", strerror(errno));
    running.connection = rpc_put_off(transport, true);
    return nullptr;
}

// The result of procedure 7 as the child has encoded it.
static bool_t xdr_encoded(XDR *xdrs, std::string_view *encoded)
{
    return xdr_opaque(xdrs, const_cast<char *>(encoded->data()), static_cast<u_int>(encoded->size()));
}

// Passes the result that the child has reported to the client. False if the report is not whole.
static bool accept_report(const std::string &report, uint64_t connection)
{
    size_t length;
    if (report.size() < sizeof length)
        return false;
    memcpy(&length, report.data(), sizeof length);
    std::string_view encoded = std::string_view(report).substr(sizeof length);
    if (encoded.size() != length)
        return false;
    rpc_answer(connection, reinterpret_cast<xdrproc_t>(xdr_encoded), &encoded);
    return true;
}

static void begin_next()
{
    while (running.child == 0 && !waiting.empty()) {
        const uint64_t connection = waiting.front();
        waiting.pop_front();
        is_next = true;
        rpc_serve_again(connection);
        is_next = false;
    }
}

// The child has ended, with its report read.
static void conclude(int status)
{
    static in_res_t failure;
    const running_t ended = std::exchange(running, {});
    rpc_unwatch(ended.pipe.get());
    ended.conclude();
    const bool answered = !ended.lost && accept_report(ended.received, ended.connection);
    if (!answered || status != 0)
        fprintf(stderr, "Trayd: A delivery has ended %s: wait status 0x%x.\n",
                answered ? "badly, after its report" : "early", static_cast<unsigned>(status));
    if (!answered) {
        // Its commands would go on making files, and finish a mail that was cut off.
        kill_session(ended.child);
        note_recover();
        error_reply(failure, IE_SEND_FAILED, 0, "Trayd: Send failed: the delivery has ended early.");
        rpc_answer(ended.connection, reinterpret_cast<xdrproc_t>(xdr_in_res_t), &failure);
    }
    begin_next();
}

// Reads what there is of the child's report. True at its end.
static bool read_on()
{
    char bytes[4096];
    ssize_t n;
    while ((n = read(running.pipe.get(), bytes, sizeof bytes)) > 0)
        try {
            running.received.append(bytes, static_cast<size_t>(n));
        } catch (const std::bad_alloc &) {
            running.lost = true;  // and read on: the child must not be left writing
        }
    return n == 0 || (errno != EAGAIN && errno != EINTR);
}

// At the end of the report the child is about to end: all that is left for it is to flush.
static void read_report()
{
    int status = 0;
    if (read_on() && child_await(running.child, &status))
        conclude(status);
}

bool delivery_has_ended(pid_t child, int status)
{
    if (running.child == 0 || child != running.child)
        return false;
    read_on();
    conclude(status);
    return true;
}

bool delivery_is_running()
{
    return running.child != 0;
}

void delivery_kill()
{
    if (running.child != 0)
        kill(running.child, SIGTERM);
}

}  // namespace faxtray
