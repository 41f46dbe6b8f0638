#include "web/deliveries.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "client/hosts.h"
#include "util/io.h"
#include "util/owned.h"
#include "web/fax_views.h"
#include "web/sessions.h"

namespace faxtray {

using nlohmann::json;

static constexpr size_t most_running = 32, most_running_of_user = 4, most_kept_of_user = 100;
static constexpr int delivery_seconds = 24 * 60 * 60;  // as faxtray(1) waits
static constexpr int connect_seconds = 25;
static constexpr size_t most_order_bytes = 1 << 20;

struct deliveries::job_t {
    std::string user;
    web_clock::time_point began;
    pid_t pid = -1;  // -1 once it has been awaited
    json faxes = json::array();
    bool done = false;
    std::jthread watcher;
};

static std::string text_of(const json &value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// The process of an order.

static void tell(const json &report)
{
    puts(text_of(report).c_str());
    fflush(stdout);
}

static std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

// Delivers one fax. False if the server is lost, so that the next need not be tried.
static bool deliver_one(inbox_client *client, const delivery_order_t &order,
                        const delivery_order_t::fax_t &ref)
{
    tell({{"id", ref.id}, {"state", "running"}});
    fax_entry fax;
    const bool found = client->find(order.inbox, ref.id, &fax);
    const bool same = found && tag_of(fax) == ref.tag;
    const bool delivered = same && client->deliver_fax(order.inbox, ref.id, order.recipient);
    const client_failure &why = client->failure();
    const bool changed = found ? !same : problem_of(why).word == "changed";
    tell({{"id", ref.id},
          {"state", delivered ? "delivered"
                    : changed ? "changed"
                              : "failed"},
          {"lines", delivered || changed ? std::vector<std::string>() : lines_of(why.message)}});
    return why.kind != client_failure::TRANSPORT;
}

int deliver_as_ordered()
{
    // Ends with the thread that waits for it: nobody else would hear how the delivery goes.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    std::string text(most_order_bytes, '\0');
    const ssize_t n = read_full(STDIN_FILENO, text.data(), text.size());
    const json given = json::parse(text.substr(0, n > 0 ? static_cast<size_t>(n) : 0), nullptr, false);
    if (!given.is_object())
        return 1;
    const auto bytes = [&](const char *name) { return given.at(name).get<std::string>(); };
    delivery_order_t order = {
        bytes("hosts"), {bytes("user"), bytes("hash"), 0}, bytes("inbox"), bytes("recipient"), {}};
    for (const json &fax : given.at("faxes"))
        order.faxes.push_back({fax.at("id"), fax.at("tag")});

    inbox_client client(order.who);
    std::vector<std::string> away;
    bool reached = connect_to_one(&client, hosts_for(order.hosts, order.who.user), connect_seconds, &away);
    client.set_timeout(delivery_seconds);
    for (const auto &fax : order.faxes)
        if (reached)
            reached = deliver_one(&client, order, fax);
        else
            tell({{"id", fax.id}, {"state", "failed"}, {"lines", lines_of(client.failure().message)}});
    return 0;
}

// The side of the server.

namespace {

struct delivery_process_t {
    pid_t pid = -1;
    unique_fd order, report;  // our ends of its pipes
};

}  // namespace

// Starts this program with --deliver. False with errno.
static bool start(delivery_process_t *process)
{
    int order[2], report[2];
    if (pipe2(order, O_CLOEXEC) < 0)
        return false;
    const unique_fd its_input(order[0]);
    process->order.reset(order[1]);
    if (pipe2(report, O_CLOEXEC) < 0)
        return false;
    process->report.reset(report[0]);
    const unique_fd its_output(report[1]);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, its_input.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, its_output.get(), STDOUT_FILENO);
    // Connections of browsers would stay open for as long as the delivery takes.
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    // This process has the signals that end it blocked, but for one thread.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    char name[] = "faxtray-web", option[] = "--deliver";
    char *const arguments[] = {name, option, nullptr};
    errno = posix_spawn(&process->pid, "/proc/self/exe", &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return errno == 0;
}

deliveries::deliveries() = default;

deliveries::~deliveries()
{
    {
        const std::lock_guard lock(mutex_);
        for (const auto &[id, job] : jobs_)
            if (job->pid > 0)
                kill(job->pid, SIGTERM);
    }
    jobs_.clear();  // awaits the watchers
}

// A user's finished jobs beyond so many are forgotten, the oldest first.
void deliveries::forget_old(const std::string &user)
{
    std::vector<std::pair<web_clock::time_point, std::string>> finished;
    for (const auto &[id, job] : jobs_)
        if (job->done && job->user == user)
            finished.emplace_back(job->began, id);
    std::sort(finished.begin(), finished.end());
    for (size_t n = 0; n + most_kept_of_user < finished.size(); n++)
        jobs_.erase(finished[n].second);
}

// Starts the process of a job, says whether it did, and waits for it. It is the watcher's child, not that of
// the thread that serves the request: that one ends soon, and the process would with it.
void deliveries::watch(job_t *job, const std::string &order, std::promise<bool> *started)
{
    delivery_process_t process;
    const bool runs = start(&process);
    if (!runs)
        fprintf(stderr, "faxtray-web: can't start a process for a delivery: %s\n", strerror(errno));
    job->pid = process.pid;  // begin() holds the lock until it knows
    started->set_value(runs);
    if (!runs)
        return;
    write_full(process.order.get(), order.data(), order.size());
    process.order.reset();
    const file_ptr reports(fdopen(process.report.release(), "r"));
    char *line = nullptr;
    size_t room = 0;
    while (reports && getline(&line, &room, reports.get()) > 0) {
        const json report = json::parse(line, nullptr, false);
        const std::lock_guard lock(mutex_);
        for (json &fax : job->faxes)
            if (report.is_object() && fax["id"] == report["id"])
                fax.update(report);
    }
    free(line);
    siginfo_t ended;
    waitid(P_PID, static_cast<id_t>(process.pid), &ended, WEXITED | WNOWAIT);
    const std::lock_guard lock(mutex_);  // before the number can mean another process
    waitpid(process.pid, nullptr, 0);
    job->pid = -1;
    job->done = true;
    for (json &fax : job->faxes)
        if (fax["state"] == "running")
            fax.update({{"state", "failed"},
                        {"lines", {"The delivery broke off: the fax may be delivered all the same."}}});
        else if (fax["state"] == "waiting")
            fax.update({{"state", "failed"}, {"lines", {"The delivery broke off before its turn."}}});
}

std::string deliveries::begin(const delivery_order_t &order)
{
    json given = {{"hosts", order.hosts}, {"user", order.who.user},       {"hash", order.who.password_hash},
                  {"inbox", order.inbox}, {"recipient", order.recipient}, {"faxes", json::array()}};
    auto job = std::make_unique<job_t>();
    job->user = order.who.user;
    job->began = web_clock::now();
    for (const auto &fax : order.faxes) {
        given["faxes"].push_back({{"id", fax.id}, {"tag", fax.tag}});
        job->faxes.push_back(
            {{"id", fax.id}, {"tag", fax.tag}, {"state", "waiting"}, {"lines", json::array()}});
    }

    const std::lock_guard lock(mutex_);
    forget_old(job->user);
    size_t running = 0, of_user = 0;
    for (const auto &[id, other] : jobs_) {
        running += !other->done;
        of_user += !other->done && other->user == job->user;
    }
    if (running >= most_running || of_user >= most_running_of_user)
        return "";
    std::promise<bool> started;
    job->watcher = std::jthread(
        [this, job = job.get(), text = text_of(given), &started] { watch(job, text, &started); });
    if (!started.get_future().get())
        return "";
    const std::string id = random_id();
    jobs_.emplace(id, std::move(job));
    return id;
}

bool deliveries::look(const std::string &job, const std::string &user, json *state)
{
    const std::lock_guard lock(mutex_);
    const auto found = jobs_.find(job);
    if (found == jobs_.end() || found->second->user != user)
        return false;
    *state = {{"done", found->second->done}, {"faxes", found->second->faxes}};
    return true;
}

}  // namespace faxtray
