// http_server: HTTP as the rest of this room sees it: a request comes in, an answer goes out. The library
// behind it, cpp-httplib, is known to this module alone.
//
// A connection carries one request, so a request that was refused half read cannot spoil the next, and an
// idle browser holds nothing. A request has five seconds to arrive whole, an answer five minutes to be taken.
#pragma once

#include <netinet/in.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "util/owned.h"

namespace faxtray {

inline constexpr size_t most_request_bytes = 64 * 1024;  // of a request, header lines included

// A request, with all escapes resolved. Whatever is here was written by a stranger.
struct http_request {
    std::string method;  // "GET" also for HEAD
    std::string path;    // begins with "/"
    std::map<std::string, std::string> query;
    std::string body;
    std::string peer;  // the other end of the connection: an address, no name
    // Header lines, "" for none. Of several lines of one name the first counts, but of `forwarded_for` all,
    // joined by commas.
    std::string cookie, token, origin, host, forwarded_for;

    // The value of that name in the query, or "".
    const std::string &parameter(const std::string &name) const;
};

// An answer: `bytes`, or else the first `file_size` bytes of `file`, which are read as the client takes them.
struct http_answer {
    int status = 200;
    std::string type = "text/plain";
    std::shared_ptr<const std::string> bytes;
    std::shared_ptr<const unique_fd> file;
    size_t file_size = 0;
    std::vector<std::pair<std::string, std::string>> headers;
};

// An answer of text.
http_answer text_answer(int status, std::string type, std::string text);

// Makes the answer to a request. Called by many threads at once; an exception becomes status 500.
using http_handler = std::function<http_answer(const http_request &)>;

class http_server {
public:
    // `everywhere`: header lines of all answers, also of those that the library makes itself.
    http_server(http_handler handler, const std::vector<std::pair<std::string, std::string>> &everywhere);
    ~http_server();

    bool listen(const sockaddr_in &address);  // false with errno
    // Serves until stop() is called, which any thread may do, and all requests at hand have been answered.
    void serve();
    void stop();

private:
    class library;  // our cpp-httplib
    std::unique_ptr<library> library_;
    unique_fd listening_;
    std::atomic<bool> stopping_ = false;
};

}  // namespace faxtray
