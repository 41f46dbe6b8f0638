#include "web/server_link.h"

#include <algorithm>

#include "client/hosts.h"

namespace faxtray {

using std::chrono::steady_clock;

static constexpr int call_seconds = 10;
// How long a host counts as away: where there is no other, it is asked again soon.
static constexpr std::chrono::seconds away_time{2}, away_time_of_several{30};

problem changed_problem()
{
    return web_problem_t{409, "changed", "The fax has changed meanwhile."};
}

problem failed_problem()
{
    return web_problem_t{500, "failed", "The server failed; its log says why."};
}

problem busy_problem()
{
    return web_problem_t{503, "busy", "The server is busy. Try again."};
}

web_problem_t problem_of(const client_failure &failure)
{
    const auto says = [&](const char *text) { return failure.message.find(text) != std::string::npos; };
    if (failure.kind == client_failure::MISMATCH)
        return *changed_problem();
    if (failure.kind != client_failure::SERVER)
        return {502, "unreachable", failure.message};
    // The password, or the user, was changed in the user list.
    if (failure.code == IE_BAD_PASSWORD || (failure.code == IE_INVALID && says("user name")))
        return {401, "session", "Log in again."};
    if (failure.code == IE_INVALID && !says("inbox name"))
        return *changed_problem();
    return {403, "refused", failure.message};
}

server_link::~server_link()
{
    // The connection's state is the worker's, up to its end.
    if (client_)
        server_.desk.run([&] { client_.reset(); });
}

// The problem of the client's last failure. A host that did not answer is left alone for a while.
problem server_link::failed()
{
    const client_failure &why = client_->failure();
    if (why.kind == client_failure::TRANSPORT) {
        const bool several = comma_separated(server_.hosts).size() > 1;
        server_.away[client_->host()] = {steady_clock::now() + (several ? away_time_of_several : away_time),
                                         why.message};
    }
    return problem_of(why);
}

// Connects to the first host of this user that is not away.
problem server_link::connect()
{
    problem result = {{502, "unreachable", "There is no host to ask."}};
    const std::vector<std::string> hosts = hosts_for(server_.hosts, who_.user);
    const int seconds = std::max(call_seconds / static_cast<int>(hosts.size()), 1);
    for (const std::string &host : hosts) {
        const auto away = server_.away.find(host);
        if (away != server_.away.end() && steady_clock::now() < away->second.until) {
            result->message = away->second.message;
            continue;
        }
        client_ = std::make_unique<inbox_client>(who_, seconds);
        // One that takes connections and says nothing is as good as none, if there is another.
        if (client_->connect(host) && (hosts.size() == 1 || client_->null_call())) {
            client_->set_timeout(call_seconds);
            return {};
        }
        result = failed();
        client_.reset();
    }
    return result;
}

problem server_link::call(const std::function<bool(inbox_client &)> &calls)
{
    problem result;
    const bool ran = server_.desk.run([&] {
        if (!client_)
            result = connect();
        if (!result && !calls(*client_))
            result = failed();
    });
    return ran ? result : busy_problem();
}

problem server_link::run(const std::function<bool()> &job)
{
    bool done = false;
    if (!server_.desk.run([&] { done = job(); }))
        return busy_problem();
    return done ? problem() : failed_problem();
}

}  // namespace faxtray
