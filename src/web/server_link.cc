#include "web/server_link.h"

namespace faxtray {

static constexpr int call_seconds = 10;
static constexpr std::chrono::seconds away_time{2};

problem changed_problem()
{
    return problem_t{409, "changed", "The fax has changed meanwhile."};
}

problem failed_problem()
{
    return problem_t{500, "failed", "The server failed; its log says why."};
}

problem busy_problem()
{
    return problem_t{503, "busy", "The server is busy. Try again."};
}

problem_t problem_of(const client_failure &failure)
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

bool server_link::connect()
{
    client_ = std::make_unique<inbox_client>(who_, call_seconds);
    return client_->connect(server_.host);
}

problem server_link::call(const std::function<bool(inbox_client &)> &calls)
{
    using std::chrono::steady_clock;
    problem result;
    const bool ran = server_.desk.run([&] {
        if (steady_clock::now() < server_.away_until) {
            result = {502, "unreachable", server_.away_message};
            return;
        }
        if ((client_ || connect()) && calls(*client_))
            return;
        result = problem_of(client_->failure());
        if (client_->failure().kind == client_failure::TRANSPORT) {
            server_.away_until = steady_clock::now() + away_time;
            server_.away_message = client_->failure().message;
        }
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
