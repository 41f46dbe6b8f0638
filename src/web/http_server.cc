// Of cpp-httplib, only the middle is used: it parses a request and writes an answer. Its own accepting and
// reading cannot be limited enough: it gives up when the system is short of memory, restarts its time limits
// with each byte that arrives, and takes any number of header lines. So sockets are accepted here, and the
// library reads from them by a stream that has these limits.
//
// What is not limited, how many connections an address may hold, is the business of the proxy in front.
#include "web/http_server.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <semaphore>
#include <system_error>
#include <thread>

namespace faxtray {

using clock_type = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Each connection has a thread, which mostly waits. More connections than that wait in the listen queue: so
// many half-sent requests keep others out for as long as a request may take.
static constexpr std::ptrdiff_t most_connections = 1024;
static constexpr std::chrono::seconds request_time = 5s, answer_time = 5min, linger_time = 1s;
static constexpr int listen_queue = 1024;      // connections
static constexpr size_t most_forwarded = 256;  // lines of X-Forwarded-For
static constexpr size_t most_path = 1024;      // bytes of a path that something could be found under

const std::string &http_request::parameter(const std::string &name) const
{
    static const std::string none;
    const auto found = query.find(name);
    return found == query.end() ? none : found->second;
}

http_answer text_answer(int status, std::string type, std::string text)
{
    http_answer answer;
    answer.status = status;
    answer.type = std::move(type);
    answer.bytes = std::make_shared<const std::string>(std::move(text));
    return answer;
}

namespace {

// A connection whose request must have arrived, and whose answer must have left, by a time for each.
class timed_stream : public httplib::Stream {
public:
    explicit timed_stream(int socket) : socket_(socket) {}

    bool is_readable() const override { return read_ < most_request_bytes && wait_for(POLLIN, request_end_); }
    bool is_writable() const override { return wait_for(POLLOUT, answer_end_); }
    ssize_t read(char *bytes, size_t n) override
    {
        // The library asks for single bytes of the request line and the header lines.
        if (at_ == buffered_) {
            if (!is_readable())
                return -1;
            const ssize_t got = recv(socket_, buffer_, sizeof buffer_, 0);
            if (got <= 0)
                return got;
            read_ += static_cast<size_t>(got);
            at_ = 0;
            buffered_ = static_cast<size_t>(got);
        }
        n = std::min(n, buffered_ - at_);
        std::copy_n(buffer_ + at_, n, bytes);
        at_ += n;
        return static_cast<ssize_t>(n);
    }
    ssize_t write(const char *bytes, size_t n) override
    {
        return is_writable() ? send(socket_, bytes, n, MSG_NOSIGNAL | MSG_DONTWAIT) : -1;
    }
    void get_remote_ip_and_port(std::string &ip, int &port) const override { name(getpeername, ip, port); }
    void get_local_ip_and_port(std::string &ip, int &port) const override { name(getsockname, ip, port); }
    socket_t socket() const override { return socket_; }

private:
    bool wait_for(short events, clock_type::time_point end) const
    {
        using namespace std::chrono;
        pollfd wanted = {socket_, events, 0};
        int ready;
        do {
            const auto left = ceil<milliseconds>(end - clock_type::now()).count();
            ready = left > 0 ? poll(&wanted, 1, static_cast<int>(left)) : 0;
        } while (ready < 0 && errno == EINTR);
        return ready > 0;
    }
    template <class Ask> void name(Ask ask, std::string &ip, int &port) const
    {
        sockaddr_storage address = {};
        socklen_t size = sizeof address;
        char host[NI_MAXHOST] = "", service[NI_MAXSERV] = "0";
        auto *generic = reinterpret_cast<sockaddr *>(&address);
        if (ask(socket_, generic, &size) == 0)
            getnameinfo(generic, size, host, sizeof host, service, sizeof service,
                        NI_NUMERICHOST | NI_NUMERICSERV);
        ip = host;
        port = static_cast<int>(strtol(service, nullptr, 10));
    }

    const int socket_;
    const clock_type::time_point request_end_ = clock_type::now() + request_time,
                                 answer_end_ = clock_type::now() + request_time + answer_time;
    char buffer_[4096];
    size_t at_ = 0, buffered_ = 0, read_ = 0;
};

}  // namespace

// Closing a socket with unread bytes resets the connection, and the client may then lose the answer that says
// why its request was refused. So what is still coming is read, for a moment.
static void close_gently(unique_fd connection)
{
    const int socket = connection.get();
    shutdown(socket, SHUT_WR);
    const auto end = clock_type::now() + linger_time;
    char bytes[4096];
    for (size_t n = 0; n < 8 * most_request_bytes && clock_type::now() < end;) {
        pollfd wanted = {socket, POLLIN, 0};
        if (poll(&wanted, 1, 100) < 0)
            break;
        const ssize_t got = recv(socket, bytes, sizeof bytes, MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno != EAGAIN))
            break;
        n += got > 0 ? static_cast<size_t>(got) : 0;
    }
}

class http_server::library : public httplib::Server {
public:
    library(http_handler handler, const std::vector<std::pair<std::string, std::string>> &everywhere);
    void serve_connection(unique_fd connection);
    // The library sends files for as long as it has a socket to listen on.
    void set_listening(int socket) { svr_sock_ = socket; }

private:
    HandlerResponse take(const httplib::Request &from, httplib::Response &to) const;
    void answer(const httplib::Request &from, httplib::Response &to) const;

    const http_handler handler_;
};

http_server::library::library(http_handler handler,
                              const std::vector<std::pair<std::string, std::string>> &everywhere)
    : handler_(std::move(handler))
{
    set_default_headers({everywhere.begin(), everywhere.end()});
    set_payload_max_length(most_request_bytes);
    set_pre_routing_handler([this](const auto &from, auto &to) { return take(from, to); });
    Post(".*", [this](const httplib::Request &from, httplib::Response &to) { answer(from, to); });
    // What the library refuses itself has no body yet.
    set_error_handler([](const httplib::Request &, httplib::Response &to) {
        if (to.body.empty() && !to.content_provider_)
            to.set_content(to.status == 413
                               ? R"({"error":"too_large","message":"The request is too long."})"
                               : R"({"error":"bad_request","message":"The request makes no sense."})",
                           "application/json");
    });
}

// The body has not been read yet. What is no plain body of JSON never is: the library would unpack a
// compressed one without end, and take forms apart. The routes of the library are regular expressions, which
// take too much of the stack for long paths.
httplib::Server::HandlerResponse http_server::library::take(const httplib::Request &from,
                                                            httplib::Response &to) const
{
    if (from.method == "GET" || from.method == "HEAD") {
        answer(from, to);
        return HandlerResponse::Handled;
    }
    const bool plain = from.get_header_value("Content-Type").rfind("application/json", 0) == 0 &&
                       !from.has_header("Content-Encoding") && !from.has_header("Transfer-Encoding");
    to.status = from.method != "POST" ? 405 : from.path.size() > most_path ? 404 : plain ? -1 : 400;
    return to.status == -1 ? HandlerResponse::Unhandled : HandlerResponse::Handled;
}

void http_server::library::serve_connection(unique_fd connection)
{
    timed_stream stream(connection.get());
    bool closed = false;
    // Ranges are not served: a list of many would make one page into a very long answer. Nor are compressed
    // answers, at whose making the threads would be busy; a proxy does that better.
    process_request(stream, true, closed, [](httplib::Request &from) {
        from.ranges.clear();
        for (const char *name : {"Range", "Accept-Encoding"})
            from.headers.erase(name);
    });
    close_gently(std::move(connection));
}

static http_request request_of(const httplib::Request &from)
{
    http_request request;
    request.method = from.method == "HEAD" ? "GET" : from.method;
    request.path = from.path;
    for (const auto &[name, value] : from.params)
        request.query.emplace(name, value);
    request.body = from.body;
    request.peer = from.remote_addr;
    request.cookie = from.get_header_value("Cookie");
    request.token = from.get_header_value("X-Faxtray-Token");
    request.origin = from.get_header_value("Origin");
    request.host = from.get_header_value("Host");
    for (size_t n = 0; n < std::min(from.get_header_value_count("X-Forwarded-For"), most_forwarded); n++) {
        if (n > 0)
            request.forwarded_for += ',';
        request.forwarded_for += from.get_header_value("X-Forwarded-For", n);
    }
    return request;
}

// Sends the file as the client takes it, in pieces.
static void provide_file(std::shared_ptr<const unique_fd> file, size_t size, const std::string &type,
                         httplib::Response &to)
{
    to.set_content_provider(size, type, [file](size_t offset, size_t length, httplib::DataSink &sink) {
        char piece[64 * 1024];
        const ssize_t n =
            pread(file->get(), piece, std::min(length, sizeof piece), static_cast<off_t>(offset));
        return n > 0 && sink.write(piece, static_cast<size_t>(n));
    });
}

void http_server::library::answer(const httplib::Request &from, httplib::Response &to) const
{
    http_answer made;
    try {
        made = handler_(request_of(from));
    } catch (const std::exception &error) {
        fprintf(stderr, "faxtray-web: %s\n", error.what());
        made = text_answer(500, "application/json", R"({"error":"failed","message":"The server failed."})");
    }
    to.status = made.status;
    for (const auto &[name, value] : made.headers)
        to.set_header(name, value);
    if (made.file)
        provide_file(made.file, made.file_size, made.type, to);
    else if (made.bytes)
        to.set_content(*made.bytes, made.type);
}

http_server::http_server(http_handler handler,
                         const std::vector<std::pair<std::string, std::string>> &everywhere)
    : library_(std::make_unique<library>(std::move(handler), everywhere))
{
}

http_server::~http_server() = default;

bool http_server::listen(const sockaddr_in &address)
{
    const int on = 1;
    listening_.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return listening_ && setsockopt(listening_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
           ::bind(listening_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
           ::listen(listening_.get(), listen_queue) == 0;
}

void http_server::serve()
{
    library_->set_listening(listening_.get());
    // Static: the last thread may not quite have left release() when this ends.
    static std::counting_semaphore<most_connections> places(most_connections);
    while (!stopping_) {
        places.acquire();
        unique_fd connection(accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        const int socket = connection.get(), on = 1;
        // A short answer is not held back until the client has acknowledged the header lines.
        setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        try {
            if (!connection)
                throw std::system_error(errno, std::generic_category());
            std::thread([this, socket] {
                library_->serve_connection(unique_fd(socket));
                places.release();
            }).detach();
            connection.release();
        } catch (const std::system_error &) {
            // Short of descriptors or of memory: connections that end give some back.
            places.release();
            std::this_thread::sleep_for(10ms);
        }
    }
    for (std::ptrdiff_t n = 0; n < most_connections; n++)
        places.acquire();
}

void http_server::stop()
{
    stopping_ = true;
    library_->set_listening(-1);
    shutdown(listening_.get(), SHUT_RDWR);  // wakes accept4()
}

}  // namespace faxtray
