// server_link: faxtrayd, as requests of the page reach it: by short connections, on the worker's thread.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "client/inbox_client.h"
#include "web/worker.h"

namespace faxtray {

// Why a request is refused: the status, a word for the page and a text for people.
struct web_problem_t {
    int status;
    std::string word, message;
};
using problem = std::optional<web_problem_t>;  // none: all is well

problem changed_problem();  // an id means another fax than the user saw, or none
problem failed_problem();   // something of our own went wrong; the log says what
problem busy_problem();     // too many requests wait

// The host of faxtrayd, or several with the same faxes. Of one that cannot be reached, all who ask within the
// next seconds are told so at once, or find another: else each would hold the worker for as long as it takes
// to give up.
struct fax_server_t {
    std::string hosts;  // with commas between
    worker &desk;
    struct away_t {
        std::chrono::steady_clock::time_point until;
        std::string message;
    };
    std::map<std::string, away_t> away = {};  // by host; the worker's alone
};

// A connection for one request, made by the first call.
class server_link {
public:
    server_link(fax_server_t &server, login who) : server_(server), who_(std::move(who)) {}
    ~server_link();
    server_link(const server_link &) = delete;
    server_link &operator=(const server_link &) = delete;

    const login &who() const { return who_; }
    // Runs `calls` on the worker. What it returns false for is in the client's failure(), and becomes the
    // problem.
    problem call(const std::function<bool(inbox_client &)> &calls);
    // Runs `job` there, without the server; false for a failure, whose reason it has printed.
    problem run(const std::function<bool()> &job);

private:
    problem connect();
    problem failed();

    fax_server_t &server_;
    const login who_;
    std::unique_ptr<inbox_client> client_;
};

// The same failure as the page is told of it.
web_problem_t problem_of(const client_failure &failure);

}  // namespace faxtray
