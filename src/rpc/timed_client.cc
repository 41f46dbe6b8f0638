// The record marking of RFC 5531 section 11 over a non-blocking socket, with a deadline at every step. The
// messages inside the records are encoded and decoded by libtirpc.
#include "rpc/timed_client.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <rpc/pmap_prot.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

namespace faxtray {

static constexpr u_int last_fragment = 0x80000000;  // the top bit of a record mark; the others are a length
static constexpr size_t piece = 1024 * 1024;  // bytes read at a time: a length alone allocates no memory
static constexpr size_t max_header = 24 + 2 * 408;  // of a call: six words, credentials and verifier

deadline_t deadline_after(const timeval &limit)
{
    return std::chrono::steady_clock::now() + std::chrono::seconds(limit.tv_sec) +
           std::chrono::microseconds(limit.tv_usec);
}

timeval time_left(deadline_t deadline)
{
    const auto left = std::max(deadline - std::chrono::steady_clock::now(), deadline_t::duration::zero());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    return {seconds.count(), std::chrono::floor<std::chrono::microseconds>(left - seconds).count()};
}

// The socket, which does not block. These return false with errno on failure, ETIMEDOUT at the deadline.

static bool wait_for_socket(int fd, short events, deadline_t deadline)
{
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd waiting = {fd, events, 0};
        const int ready = left.count() > 0 ? poll(&waiting, 1, static_cast<int>(left.count())) : 0;
        if (ready > 0)
            return true;
        if (ready == 0) {
            errno = ETIMEDOUT;
            return false;
        }
        if (errno != EINTR)
            return false;
    }
}

// Moves `n` bytes by calls of `move` (send or recv), which is given the count of those moved already.
template <class Move> static bool move_all(int fd, short events, size_t n, deadline_t deadline, Move move)
{
    for (size_t done = 0; done < n;) {
        const ssize_t moved = move(done);
        if (moved == 0)
            errno = ECONNRESET;
        if (moved < 0 && errno == ETIMEDOUT)  // the system's, which has probed the peer, not the caller's
            errno = EHOSTDOWN;
        if (moved == 0 || (moved < 0 && errno != EAGAIN && errno != EINTR))
            return false;
        if (moved > 0)
            done += static_cast<size_t>(moved);
        // Checked after every call: a peer that always has a byte ready never makes us wait.
        if (std::chrono::steady_clock::now() > deadline) {
            errno = ETIMEDOUT;
            return false;
        }
        if (moved < 0 && !wait_for_socket(fd, events, deadline))
            return false;
    }
    return true;
}

static bool send_all(int fd, const char *bytes, size_t n, deadline_t deadline)
{
    return move_all(fd, POLLOUT, n, deadline,
                    [&](size_t done) { return send(fd, bytes + done, n - done, MSG_NOSIGNAL); });
}

static bool receive_all(int fd, char *bytes, size_t n, deadline_t deadline)
{
    return move_all(fd, POLLIN, n, deadline,
                    [&](size_t done) { return recv(fd, bytes + done, n - done, 0); });
}

// Reads one record, joining its fragments.
static bool receive_record(int fd, std::string *record, deadline_t deadline)
{
    record->clear();
    u_int mark = 0;
    do {
        if (!receive_all(fd, reinterpret_cast<char *>(&mark), sizeof mark, deadline))
            return false;
        mark = ntohl(mark);
        // The length is the peer's claim: refuse an absurd one, and allocate only as bytes arrive.
        size_t left = mark & ~last_fragment;
        if (left > max_reply - record->size()) {
            errno = EMSGSIZE;
            return false;
        }
        while (left > 0) {
            const size_t have = record->size(), next = std::min(left, piece);
            record->resize(have + next);
            if (!receive_all(fd, record->data() + have, next, deadline))
                return false;
            left -= next;
        }
    } while (!(mark & last_fragment));
    return true;
}

// Connects within the deadline; false with errno on failure.
static bool connect_by(int fd, const sockaddr *address, socklen_t size, deadline_t deadline)
{
    if (connect(fd, address, size) == 0)
        return true;
    if (errno != EINPROGRESS || !wait_for_socket(fd, POLLOUT, deadline))
        return false;
    // Writable means finished, which may be a failure: the socket has its error number.
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0)
        return false;
    errno = error;
    return error == 0;
}

// The client.

namespace {

struct timed_client_t {
    CLIENT client;  // what callers hold; its cl_private points back here
    unique_fd socket;
    rpcprog_t program;
    rpcvers_t version;
    u_int xid;  // of the last call
    rpc_err error;
    std::string record;  // the call, then its reply; kept between calls, so that memory is allocated once
};

}  // namespace

static timed_client_t *self(CLIENT *client)
{
    return static_cast<timed_client_t *>(client->cl_private);
}

// Records a transport failure from errno. The stream is now out of step, so the connection is shut down.
static clnt_stat transport_failure(timed_client_t *me, clnt_stat status)
{
    me->error.re_errno = errno;
    me->error.re_status = errno == ETIMEDOUT ? RPC_TIMEDOUT : status;
    shutdown(me->socket.get(), SHUT_RDWR);
    return me->error.re_status;
}

// Encodes the call into the record, after its record mark. False when the argument cannot be encoded.
static bool encode_call(timed_client_t *me, rpcproc_t procedure, xdrproc_t xdr_args, void *args)
{
    rpc_msg header = {};
    header.rm_xid = ++me->xid;
    header.rm_direction = CALL;
    header.rm_call.cb_rpcvers = RPC_MSG_VERSION;
    header.rm_call.cb_prog = me->program;
    header.rm_call.cb_vers = me->version;
    auto number = static_cast<u_int>(procedure);

    // One fragment, encoded in place; the mark is filled in once the length is known.
    std::string &bytes = me->record;
    bytes.resize(sizeof(u_int) + max_header + xdr_sizeof(xdr_args, args));
    XDR xdrs;
    xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), XDR_ENCODE);
    u_int mark = 0;
    if (!xdr_u_int(&xdrs, &mark) || !xdr_callhdr(&xdrs, &header) || !xdr_u_int(&xdrs, &number) ||
        !AUTH_MARSHALL(me->client.cl_auth, &xdrs) ||
        !AUTH_WRAP(me->client.cl_auth, &xdrs, xdr_args, static_cast<caddr_t>(args)))
        return false;
    bytes.resize(xdr_getpos(&xdrs));
    mark = htonl(last_fragment | static_cast<u_int>(bytes.size() - sizeof mark));
    memcpy(bytes.data(), &mark, sizeof mark);
    return true;
}

static bool_t xdr_nothing(XDR *, void *) noexcept
{
    return TRUE;
}

// Decodes a reply, and the result into `result` if the call succeeded. RPC_INPROGRESS for the late reply to
// an earlier call, which is to be skipped.
static clnt_stat decode_reply(timed_client_t *me, xdrproc_t xdr_result, void *result)
{
    XDR xdrs;
    xdrmem_create(&xdrs, me->record.data(), static_cast<u_int>(me->record.size()), XDR_DECODE);
    rpc_msg reply = {};
    // The result is decoded only once the reply is known to be ours.
    reply.acpted_rply.ar_results.proc = reinterpret_cast<xdrproc_t>(xdr_nothing);
    const bool read = xdr_replymsg(&xdrs, &reply);
    const bool ours = read && reply.rm_xid == me->xid;
    if (ours) {
        _seterr_reply(&reply, &me->error);
        if (me->error.re_status == RPC_SUCCESS &&
            !AUTH_UNWRAP(me->client.cl_auth, &xdrs, xdr_result, static_cast<caddr_t>(result)))
            me->error.re_status = RPC_CANTDECODERES;
    }
    // Also after a failure: the verifier may have been allocated before it.
    if (reply.rm_reply.rp_stat == MSG_ACCEPTED)
        xdr_free(reinterpret_cast<xdrproc_t>(xdr_opaque_auth), &reply.acpted_rply.ar_verf);
    if (!read)
        return me->error.re_status = RPC_CANTDECODERES;
    return ours ? me->error.re_status : RPC_INPROGRESS;
}

// One call, by the deadline: sends it and waits for its own reply.
static clnt_stat call_by(timed_client_t *me, rpcproc_t procedure, xdrproc_t xdr_args, void *args,
                         xdrproc_t xdr_result, void *result, deadline_t deadline)
{
    if (!encode_call(me, procedure, xdr_args, args))
        return me->error.re_status = RPC_CANTENCODEARGS;
    const int fd = me->socket.get();
    if (!send_all(fd, me->record.data(), me->record.size(), deadline))
        return transport_failure(me, RPC_CANTSEND);
    clnt_stat status;
    do {
        if (!receive_record(fd, &me->record, deadline))
            return transport_failure(me, RPC_CANTRECV);
        status = decode_reply(me, xdr_result, result);
    } while (status == RPC_INPROGRESS);
    return status;
}

// The operations of a CLIENT, as libtirpc's clnt_* macros call them.

static clnt_stat timed_call(CLIENT *client, rpcproc_t procedure, xdrproc_t xdr_args, void *args,
                            xdrproc_t xdr_result, void *result, timeval limit)
{
    timed_client_t *me = self(client);
    me->error = {};
    try {
        return call_by(me, procedure, xdr_args, args, xdr_result, result, deadline_after(limit));
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return transport_failure(me, RPC_SYSTEMERROR);
    }
}

static void timed_geterr(CLIENT *client, rpc_err *error)
{
    *error = self(client)->error;
}

static bool_t timed_freeres(CLIENT *, xdrproc_t routine, void *result)
{
    xdr_free(routine, result);
    return TRUE;
}

const char *rpc_create_reason()
{
    const int error_number = rpc_createerr.cf_error.re_errno;
    if (rpc_createerr.cf_stat == RPC_TIMEDOUT)
        return "it takes too long";
    return error_number ? strerror(error_number) : clnt_sperrno(rpc_createerr.cf_stat);
}

void timed_destroy(CLIENT *client)
{
    auth_destroy(client->cl_auth);
    delete self(client);
}

static bool_t timed_control(CLIENT *client, u_int request, void *value)
{
    if (request != CLGET_FD)
        return FALSE;
    *static_cast<int *>(value) = self(client)->socket.get();
    return TRUE;
}

static void timed_abort(CLIENT *) {}  // libtirpc's own do nothing either

// Creating a client.

// Sets rpc_createerr, where clnt_create reports its failures.
static void note_failure(clnt_stat status, const rpc_err &error = {})
{
    rpc_createerr.cf_stat = status;
    rpc_createerr.cf_error = error;
}

// The same from errno; a time-out is reported as such wherever it happened.
static void note_errno(clnt_stat status)
{
    rpc_err error = {};
    error.re_status = RPC_SYSTEMERROR;
    error.re_errno = errno;
    note_failure(errno == ETIMEDOUT ? RPC_TIMEDOUT : status, error);
}

// A client that calls `program` over a connected socket; null, with rpc_createerr set, without memory.
static CLIENT *client_over(unique_fd socket, rpcprog_t program, rpcvers_t version)
{
    static CLIENT::clnt_ops operations = {timed_call,    timed_abort,   timed_geterr,
                                          timed_freeres, timed_destroy, timed_control};
    // Transaction ids differ between processes, and between the clients of one by 65,536 calls.
    static u_int first_xid = static_cast<u_int>(time(nullptr)) ^ static_cast<u_int>(getpid()) << 16;
    std::unique_ptr<timed_client_t> made(new (std::nothrow) timed_client_t());
    if (!made) {
        errno = ENOMEM;
        note_errno(RPC_SYSTEMERROR);
        return nullptr;
    }
    made->client.cl_auth = authnone_create();
    made->client.cl_ops = &operations;
    made->client.cl_private = made.get();
    made->socket = std::move(socket);
    made->program = program;
    made->version = version;
    made->xid = first_xid += 0x10000;
    return &made.release()->client;
}

CLIENT *timed_clnt_connect(int socket, const sockaddr *address, socklen_t size, rpcprog_t program,
                           rpcvers_t version, deadline_t deadline)
{
    unique_fd owner(socket);
    if (owner && connect_by(socket, address, size, deadline))
        return client_over(std::move(owner), program, version);
    note_errno(RPC_SYSTEMERROR);
    return nullptr;
}

CLIENT *timed_clnt_at(const sockaddr_in &address, rpcprog_t program, rpcvers_t version, deadline_t deadline)
{
    return timed_clnt_connect(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP),
                              reinterpret_cast<const sockaddr *>(&address), sizeof address, program, version,
                              deadline);
}

// Asks the port mapper for the program's TCP port (RFC 1833 section 3); 0, with rpc_createerr set, when it
// cannot be had.
static u_short ask_port(sockaddr_in address, rpcprog_t program, rpcvers_t version, deadline_t deadline)
{
    address.sin_port = htons(PMAPPORT);
    const client_ptr mapper(timed_clnt_at(address, PMAPPROG, PMAPVERS, deadline));
    if (!mapper) {
        if (rpc_createerr.cf_stat != RPC_TIMEDOUT)
            rpc_createerr.cf_stat = RPC_PMAPFAILURE;
        return 0;
    }
    pmap wanted = {program, version, IPPROTO_TCP, 0};
    u_short port = 0;
    const clnt_stat status =
        call_by(self(mapper.get()), PMAPPROC_GETPORT, reinterpret_cast<xdrproc_t>(xdr_pmap), &wanted,
                reinterpret_cast<xdrproc_t>(xdr_u_short), &port, deadline);
    if (status != RPC_SUCCESS)
        note_failure(status == RPC_TIMEDOUT ? RPC_TIMEDOUT : RPC_PMAPFAILURE, self(mapper.get())->error);
    else if (port == 0)
        note_failure(RPC_PROGNOTREGISTERED);
    return port;
}

// timed_clnt_create until `deadline`; may throw std::bad_alloc.
static CLIENT *create_by(const char *host, rpcprog_t program, rpcvers_t version, deadline_t deadline)
{
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &found) != 0) {
        note_failure(RPC_UNKNOWNHOST);
        return nullptr;
    }
    // The first address only: the service is expected on this host or on one with a single address.
    sockaddr_in address;
    memcpy(&address, found->ai_addr, sizeof address);
    freeaddrinfo(found);

    address.sin_port = htons(ask_port(address, program, version, deadline));
    return address.sin_port != 0 ? timed_clnt_at(address, program, version, deadline) : nullptr;
}

CLIENT *timed_clnt_create(const char *host, rpcprog_t program, rpcvers_t version, const timeval &limit)
{
    try {
        return create_by(host, program, version, deadline_after(limit));
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        note_errno(RPC_SYSTEMERROR);
        return nullptr;
    }
}

bool rpc_answers(CLIENT *client, const timeval &limit)
{
    return clnt_call(client, NULLPROC, reinterpret_cast<xdrproc_t>(xdr_nothing), nullptr,
                     reinterpret_cast<xdrproc_t>(xdr_nothing), nullptr, limit) == RPC_SUCCESS;
}

bool rpc_answers_on(const char *host, rpcprog_t program, rpcvers_t version, const timeval &limit)
{
    const deadline_t deadline = deadline_after(limit);
    const client_ptr client(timed_clnt_create(host, program, version, limit));
    return client && rpc_answers(client.get(), time_left(deadline));
}

}  // namespace faxtray
