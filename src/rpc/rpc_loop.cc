// Level-triggered epoll: what is not read, or cannot be written, is reported again. So a connection only has
// to say what it waits for, and nothing is lost when a round is cut short.
#include "rpc/rpc_loop.h"

#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <iterator>
#include <memory>
#include <new>
#include <unordered_map>
#include <vector>

#include "rpc/connection_table.h"
#include "rpc/registration.h"
#include "rpc/rpc_connection.h"
#include "rpc/rpc_service.h"
#include "util/owned.h"

namespace faxtray {

using namespace std::chrono_literals;

// Descriptors that connections may not use, so that faxes can be opened and children started at any load.
static constexpr int reserve = 64;
static constexpr int most_connections = 20000;
static constexpr int accepted_at_once = 64;
static constexpr auto farewell = 1s;           // for clients to take their replies, at the end
static constexpr auto longest_farewell = 10s;  // for what is unfinished then
static constexpr auto busy_time = 5ms;         // of the loop's time at once, for clients that never pause
static constexpr size_t worth_returning = 512 * 1024;  // bytes of memory, to the system

static rpc_time now()
{
    return std::chrono::steady_clock::now();
}

// How many connections may be open at once: the descriptors that our limit allows, less those open for other
// purposes and the reserve.
static size_t count_places()
{
    struct rlimit limit = {1024, 1024};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int allowed = static_cast<int>(std::min<rlim_t>(limit.rlim_cur, most_connections));
    int others = 0;
    for (int fd = 0; fd < allowed; fd++)
        others += fcntl(fd, F_GETFD) >= 0;
    return static_cast<size_t>(std::max(1, allowed - others - std::min(reserve, allowed / 4)));
}

namespace {

class rpc_loop {
public:
    rpc_loop(const rpc_service_t &service, int listener)
        : service_(service), listener_(listener), poll_(epoll_create1(EPOLL_CLOEXEC)), table_(count_places())
    {
    }
    int run();

    void answer(uint64_t number, xdrproc_t xdr, void *result);
    void serve_again(uint64_t number);
    void leave();
    bool watch(int fd, std::function<void()> ready);
    void unwatch(int fd);

private:
    struct client_t : rpc_connection {
        using rpc_connection::rpc_connection;
        uint32_t events = EPOLLIN;  // what epoll looks for
        bool queued = false;
    };

    bool control(int operation, int fd, uint32_t events);
    void open_door(bool open);
    void handle(const epoll_event &event);
    static uint32_t wanted_events(const client_t &client, bool served);
    void settle(client_t &client, bool good, bool served = false);
    void close(int fd);
    void serve(std::deque<int> &queue);
    void serve_round();
    void serve_busy();
    void let_in();
    bool let_in_one();
    void end_overdue();
    int timeout() const;
    bool has_unsent() const;
    void say_farewell();
    bool call_watch(int fd);
    client_t *find(int fd) const;
    client_t *take_put_off(uint64_t number);

    const rpc_service_t &service_;
    const int listener_;
    unique_fd poll_;
    connection_table table_;
    bool door_open_ = true;  // newcomers are let in
    std::unordered_map<int, std::unique_ptr<client_t>> clients_;
    std::unordered_map<uint64_t, int> put_off_;  // the descriptors of connections whose answer is put off
    std::unordered_map<int, std::function<void()>> watches_;
    // Connections with a whole request, in the order in which they are served: those whose client has waited
    // for a reply before it sent the request, and those that had it at hand already.
    std::deque<int> ready_, busy_;
    size_t freed_ = 0;  // bytes, about, since memory was last returned to the system
    uint64_t last_serial_ = 0;
    rpc_time now_ = now(), looked_ = now_, served_busy_ = now_, complained_ = now_ - 1h;
};

rpc_loop *the_loop;  // while it runs

}  // namespace

bool rpc_loop::control(int operation, int fd, uint32_t events)
{
    epoll_event event = {};
    event.events = events;
    event.data.fd = fd;
    return epoll_ctl(poll_.get(), operation, fd, &event) == 0;
}

void rpc_loop::open_door(bool open)
{
    if (open != door_open_ && control(EPOLL_CTL_MOD, listener_, open ? uint32_t{EPOLLIN} : 0))
        door_open_ = open;
}

rpc_loop::client_t *rpc_loop::find(int fd) const
{
    const auto found = clients_.find(fd);
    return found == clients_.end() ? nullptr : found->second.get();
}

void rpc_loop::close(int fd)
{
    const auto found = clients_.find(fd);
    freed_ += found->second->memory();
    if (found->second->queued) {
        std::erase(ready_, fd);
        std::erase(busy_, fd);
    }
    if (found->second->is_put_off())
        put_off_.erase(found->second->serial());
    table_.remove(fd);
    clients_.erase(found);
    open_door(true);
}

// What epoll is to look for. With one request at hand nothing more is read either, but that is served sooner
// than epoll could be told.
uint32_t rpc_loop::wanted_events(const client_t &client, bool served)
{
    if (client.wants_room())
        return EPOLLOUT;
    if (client.is_put_off() || (served && client.has_request()))
        return 0;
    return EPOLLIN;
}

// After anything has happened to a connection, `served` if that was a request: sees that what it now waits
// for is noticed, or closes it.
void rpc_loop::settle(client_t &client, bool good, bool served)
try {
    if (!good) {
        close(client.fd());
        return;
    }
    if (client.is_kept())
        table_.pin(client.fd());
    else
        table_.touch(client.fd(), now_);
    if (client.is_put_off())
        put_off_[client.serial()] = client.fd();
    if (client.has_request() && !client.queued) {
        (served ? busy_ : ready_).push_back(client.fd());
        client.queued = true;
    }
    const uint32_t events = wanted_events(client, served);
    if (events == client.events)
        return;
    // It is not there any more if its client had gone before it was answered.
    if (control(EPOLL_CTL_MOD, client.fd(), events) || control(EPOLL_CTL_ADD, client.fd(), events))
        client.events = events;
    else
        close(client.fd());
} catch (const std::bad_alloc &) {
    close(client.fd());
}

void rpc_loop::handle(const epoll_event &event)
{
    client_t *client = find(event.data.fd);
    if (!client)  // closed earlier in this round
        return;
    if (event.events & EPOLLOUT) {
        freed_ += client->memory();  // at each piece: its buffer is soon freed
        settle(*client, client->send_more(now_));
    } else if (client->is_kept())  // its client has gone, but what it asked for is done all the same
        control(EPOLL_CTL_DEL, event.data.fd, 0);
    else if (event.events & (EPOLLERR | EPOLLHUP) && !(event.events & EPOLLIN))
        close(event.data.fd);
    else if (!client->has_request() && !client->wants_room())
        settle(*client, client->receive(now_));
}

// The request of the first connection of a queue.
void rpc_loop::serve(std::deque<int> &queue)
{
    client_t &client = *clients_.at(queue.front());
    queue.pop_front();
    client.queued = false;
    settle(client, client.serve(now_), true);
    if (service_.wake_pending())
        service_.wake();
}

// Clients that send a request and wait for its reply come first, one request each.
void rpc_loop::serve_round()
{
    for (size_t n = ready_.size(); n > 0 && !ready_.empty() && !service_.ending(); n--)
        serve(ready_);
}

// Clients that have sent more than one request have their turn when nobody else is waiting, or has been for a
// while; for a moment, so that they do not make others wait.
void rpc_loop::serve_busy()
{
    const rpc_time end = now() + busy_time;
    do {
        if (busy_.empty() || service_.ending())
            break;
        serve(busy_);
    } while (now() < end);
    served_busy_ = now();
}

// Lets one client in. False when there is none, or no descriptor or memory for it.
bool rpc_loop::let_in_one()
{
    sockaddr_in peer = {};
    socklen_t length = sizeof peer;
    unique_fd fd(
        accept4(listener_, reinterpret_cast<sockaddr *>(&peer), &length, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            if (now_ - complained_ >= 1min)
                fprintf(stderr, "Trayd: Can't accept connections: %s\n", strerror(errno));
            complained_ = now_;
            open_door(false);  // until a connection closes, or the next second
        }
        return errno == ECONNABORTED || errno == EINTR;
    }
    const int place = table_.place_for(peer.sin_addr.s_addr, now_);
    if (place == connection_table::no_place)
        return true;  // turned away
    if (place != connection_table::free_place)
        close(place);
    const int number = fd.get();
    auto client = std::make_unique<client_t>(std::move(fd), peer, ++last_serial_, service_, now_);
    clients_[number] = std::move(client);
    try {
        table_.add(number, peer.sin_addr.s_addr, now_);
    } catch (const std::bad_alloc &) {
        clients_.erase(number);
        throw;
    }
    if (!control(EPOLL_CTL_ADD, number, EPOLLIN))
        close(number);
    return true;
}

void rpc_loop::let_in()
try {
    for (int n = 0; n < accepted_at_once && let_in_one(); n++) {
    }
} catch (const std::bad_alloc &) {
    open_door(false);
}

// Once a second.
void rpc_loop::end_overdue()
{
    if (now_ - looked_ < 1s)
        return;
    looked_ = now_;
    std::vector<int> overdue;
    try {
        for (const auto &[fd, client] : clients_)
            if (client->is_overdue(now_))
                overdue.push_back(fd);
    } catch (const std::bad_alloc &) {  // those found so far, then, and the others the next time
    }
    for (const int fd : overdue)
        close(fd);
    open_door(true);
    if (freed_ >= worth_returning) {
        freed_ = 0;
        malloc_trim(0);
    }
}

bool rpc_loop::has_unsent() const
{
    return std::any_of(clients_.begin(), clients_.end(),
                       [](const auto &c) { return c.second->wants_room(); });
}

// Nothing new is let in or read. What is unfinished is waited for, and what was answered reaches those who
// read.
void rpc_loop::say_farewell()
{
    control(EPOLL_CTL_DEL, listener_, 0);
    epoll_event events[64];
    const rpc_time start = now();
    rpc_time finished = start;
    while (now() - finished < farewell && (has_unsent() || service_.unfinished())) {
        if (service_.unfinished() && now() - start < longest_farewell)
            finished = now();
        const int n = epoll_wait(poll_.get(), events, std::size(events), 50);
        for (int i = 0; i < n; i++) {
            const int fd = events[i].data.fd;
            client_t *client = find(fd);
            if (fd == service_.wake_fd)
                service_.wake();
            else if (!client)
                call_watch(fd);
            else if (client->wants_room())
                settle(*client, client->send_more(now_));
            else
                control(EPOLL_CTL_DEL, fd, 0);
        }
    }
}

// Calls what watches `fd`, if anything does.
bool rpc_loop::call_watch(int fd)
{
    const auto found = watches_.find(fd);
    if (found == watches_.end())
        return false;
    std::function<void()>(found->second)();  // a copy: it may unwatch itself
    return true;
}

// Milliseconds until the entry at the port mapper is to be looked at.
static int until_registration()
{
    const timeval due = registration_due();
    return static_cast<int>(due.tv_sec * 1000 + (due.tv_usec + 999) / 1000);
}

// How long to wait when nothing happens, in milliseconds.
int rpc_loop::timeout() const
{
    if (!ready_.empty() || !busy_.empty())
        return 0;
    const bool is_idle = clients_.empty() && door_open_ && freed_ < worth_returning;
    return is_idle ? until_registration() : 1000;
}

int rpc_loop::run()
{
    if (!poll_ || !control(EPOLL_CTL_ADD, service_.wake_fd, EPOLLIN) ||
        !control(EPOLL_CTL_ADD, listener_, EPOLLIN))
        return errno;
    epoll_event events[256];
    while (!service_.ending()) {
        const int n = epoll_wait(poll_.get(), events, std::size(events), timeout());
        if (n < 0 && errno != EINTR)
            return errno;
        now_ = now();
        bool knocked = false;
        for (int i = 0; i < n; i++) {
            const int fd = events[i].data.fd;
            if (fd == service_.wake_fd)
                service_.wake();
            else if (fd == listener_)
                knocked = true;
            else if (!call_watch(fd))
                handle(events[i]);
        }
        serve_round();
        // Last: a newcomer may get a descriptor that this round's events knew as another's.
        if (knocked)
            let_in();
        if (n <= 0 || now_ - served_busy_ > busy_time)
            serve_busy();
        end_overdue();
        if (n == 0 && until_registration() == 0)  // nobody is waiting
            registration_look();
    }
    say_farewell();
    return 0;
}

// The connection whose answer was put off, which it is no longer. Null if it has gone.
rpc_loop::client_t *rpc_loop::take_put_off(uint64_t number)
{
    const auto found = put_off_.find(number);
    if (found == put_off_.end())
        return nullptr;
    client_t *client = clients_.at(found->second).get();
    put_off_.erase(found);
    return client;
}

void rpc_loop::answer(uint64_t number, xdrproc_t xdr, void *result)
{
    if (client_t *client = take_put_off(number))
        settle(*client, client->answer(xdr, result, now_), true);
}

void rpc_loop::serve_again(uint64_t number)
{
    client_t *client = take_put_off(number);
    if (!client)
        return;
    settle(*client, client->serve_again(now_), true);
}

// Only closes: freeing what the daemon owns would cost the child time, and change nothing.
void rpc_loop::leave()
{
    for (const auto &[fd, client] : clients_)
        ::close(fd);
    for (const auto &[fd, ready] : watches_)
        ::close(fd);
    ::close(listener_);
    ::close(poll_.get());
}

bool rpc_loop::watch(int fd, std::function<void()> ready)
try {
    watches_[fd] = std::move(ready);
    if (control(EPOLL_CTL_ADD, fd, EPOLLIN))
        return true;
    const int error = errno;
    watches_.erase(fd);
    errno = error;
    return false;
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return false;
}

void rpc_loop::unwatch(int fd)
{
    control(EPOLL_CTL_DEL, fd, 0);
    watches_.erase(fd);
}

int rpc_loop_run(const rpc_service_t &service, int listener)
{
    rpc_loop loop(service, listener);
    the_loop = &loop;
    const int error = loop.run();
    the_loop = nullptr;
    return error;
}

uint64_t rpc_put_off(SVCXPRT *transport, bool keep)
{
    rpc_connection &connection = rpc_connection::of(transport);
    connection.put_off(keep);
    return connection.serial();
}

void rpc_answer(uint64_t number, xdrproc_t xdr, void *result)
{
    the_loop->answer(number, xdr, result);
}

void rpc_serve_again(uint64_t number)
{
    the_loop->serve_again(number);
}

void rpc_leave()
{
    the_loop->leave();
}

bool rpc_watch(int fd, std::function<void()> ready)
{
    return the_loop->watch(fd, std::move(ready));
}

void rpc_unwatch(int fd)
{
    the_loop->unwatch(fd);
}

}  // namespace faxtray
