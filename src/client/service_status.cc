// Whoever does not answer is waited for once: what would ask it again is left out.
#include "client/service_status.h"

#include <rpc/pmap_prot.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <sstream>

#include "check/needs.h"
#include "check/seen_lists.h"
#include "config/user_list_file.h"
#include "config/user_settings.h"
#include "registry/regd_requests.h"
#include "rpc/host_address.h"
#include "rpc/port_mapper.h"
#include "util/access.h"
#include "util/paths.h"
#include "util/site_programs.h"
#include "util/timed_answer.h"

namespace faxtray {

namespace fs = std::filesystem;

bool service_status_t::is_well() const
{
    return std::all_of(parts.begin(), parts.end(), [](const part_t &part) {
        return part.state == part_state::OK || part.state == part_state::NOT_NEEDED;
    });
}

// What can be asked from anywhere

static constexpr char not_found[] = "rpcbind is to say where it listens";

static part_t ask_rpcbind(in_addr address, const timeval &limit)
{
    sockaddr_in at = {};
    at.sin_family = AF_INET;
    at.sin_port = htons(PMAPPORT);
    at.sin_addr = address;
    const client_ptr client(timed_clnt_at(at, PMAPPROG, PMAPVERS, deadline_after(limit)));
    if (!client)
        return {"rpcbind", part_state::FAILED, rpc_create_reason()};
    if (!rpc_answers(client.get(), limit))
        return {"rpcbind", part_state::FAILED, "it takes connections, and does not answer"};
    return {"rpcbind", part_state::OK, ""};
}

static part_t ask_daemon(inbox_client &client, service_status_t &status)
{
    revision rev;
    if (!client.connect(status.host))
        return {"faxtrayd", part_state::FAILED, client.failure().message};
    const auto asked = std::chrono::steady_clock::now();
    const bool answered = client.trayd_rev(&rev);
    status.answer_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - asked).count();
    if (!answered || !client.get_status(&status.settings))
        return {"faxtrayd", part_state::FAILED, client.failure().message};
    status.version = rev.text;
    char took[64];
    snprintf(took, sizeof took, "answers in %.1f ms, version ", 1000 * status.answer_seconds);
    return {"faxtrayd", part_state::OK, took + rev.text};
}

// What only the server's host knows

// faxtrayd believes a registry of root's or of its own user's.
static part_t ask_registry(bool needed, const timeval &limit)
{
    mapping_t registry, daemon;
    if (!port_mapper_find(REGD_PROG_BASE + 1, REGD_VERS, deadline_after(limit), &registry) ||
        !port_mapper_find(IN_PROG, IN_VERS, deadline_after(limit), &daemon))
        return {"faxregd", part_state::FAILED, std::string("rpcbind: ") + rpc_create_reason()};
    if (registry.port == 0)
        return needed ? part_t{"faxregd", part_state::WARNING, "it is not running: start it"}
                      : part_t{"faxregd", part_state::NOT_NEEDED, ""};
    const std::string owner = registry.owner;
    if (daemon.port != 0 && owner != "superuser" && owner != daemon.owner)
        return {"faxregd", part_state::FAILED, "user " + owner + " runs it: faxtrayd does not ask it"};
    if (!rpc_answers_on("localhost", REGD_PROG_BASE + 1, REGD_VERS, limit))
        return {"faxregd", part_state::FAILED, "it is registered, and does not answer: start it again"};
    return {"faxregd", part_state::OK, ""};
}

static part_t look_for_agent(const needs_t &needs)
{
    if (!needs.mail && !needs.notices)
        return {"mail agent", part_state::NOT_NEEDED, ""};
    const int error = execution_error(mail_agent_file);
    return {"mail agent", error ? part_state::FAILED : part_state::OK,
            std::string(mail_agent_file) + (error ? std::string(": ") + strerror(error) : "")};
}

static part_t look_for_converters(const needs_t &needs)
{
    std::string found, missing;
    for (const int format : needs.formats)
        for (const std::string &converter : converters_of(format)) {
            std::string &names = is_command(converter) ? found : missing;
            names += (names.empty() ? "" : ", ") + converter;
        }
    if (!missing.empty())
        return {"converters", part_state::FAILED, "not found: " + missing};
    return {"converters", found.empty() ? part_state::NOT_NEEDED : part_state::OK, found};
}

static constexpr long whole_share = 10'000;

// The directory on which the path's file system is mounted: a label that stays when users come and go. What
// is not there yet will be made on the file system of the directory above it.
static fs::path mount_point(const fs::path &path, dev_t *device)
{
    struct stat st, above;
    std::error_code ignored;
    fs::path at = fs::weakly_canonical(path, ignored);
    while (stat(at.c_str(), &st) != 0 && at.has_relative_path())
        at = at.parent_path();
    while (at.has_relative_path() && stat(at.parent_path().c_str(), &above) == 0 && above.st_dev == st.st_dev)
        at = at.parent_path();
    *device = st.st_dev;
    return at;
}

// "SHARE DIRECTORY", in ten-thousandths, a line for each file system. The share is what df(1) would print: of
// the room that users have, without what is kept for root.
static std::string free_shares(const std::set<std::string> &paths)
{
    std::string lines;
    std::set<dev_t> seen;
    for (const std::string &path : paths) {
        dev_t device;
        struct statvfs st;
        const fs::path mounted = mount_point(path, &device);
        if (!seen.insert(device).second || statvfs(mounted.c_str(), &st) != 0 || st.f_blocks == 0)
            continue;
        const auto available = static_cast<double>(st.f_bavail);
        const double usable = static_cast<double>(st.f_blocks - st.f_bfree) + available;
        const long share = usable > 0 ? std::lround(whole_share * available / usable) : 0;
        lines += std::to_string(share) + " " + mounted.string() + "\n";
    }
    return lines;
}

static void look_at_disks(const std::set<std::string> &paths, int seconds, std::vector<part_t> &parts)
{
    const auto answer = timed_answer(seconds, [&paths] { return free_shares(paths); });
    if (!answer) {
        parts.push_back({"disk", part_state::FAILED, "a file system does not answer"});
        return;
    }
    std::istringstream lines(*answer);
    part_t disk = {"disk", part_state::OK, ""};
    long share = 0;
    while (lines >> share && std::getline(lines >> std::ws, disk.path)) {
        disk.free_share = static_cast<double>(share) / whole_share;
        disk.state = disk.free_share < low_share ? part_state::WARNING : part_state::OK;
        disk.detail = std::to_string(share * 100 / whole_share) + " % free: " + disk.path;
        parts.push_back(disk);
    }
}

// Where faxes are kept, and what deliveries need room in.
static std::set<std::string> directories(const seen_users_t &users, const std::set<std::string> &incoming)
{
    std::set<std::string> paths = incoming;
    for (const av_list_t *user = users.users.head(); user; user = user->next)
        if (takes_inbox_delivery(user))
            if (const c_string inbox{ui_inbox_path(user)})
                paths.insert(inbox.get());
    const char *home = getenv("ONDRIXHOME");
    paths.insert(std::string(home ? home : ".") + "/work");
    paths.insert(get_temp_dir());
    return paths;
}

static void look_around(service_status_t &status, int seconds, bool rpcbind_answers)
{
    // The lists are read as the daemon reads them, in the C locale. What is wrong in them faxtray-check
    // tells.
    setlocale(LC_ALL, "C");
    problems_t ignored;
    seen_users_t users;
    seen_modems_t modems;
    see_users(nullptr, ignored, &users);
    see_modems(nullptr, ignored, &modems);
    setlocale(LC_ALL, "");
    status.lists_read = users.is_read && modems.is_read;
    if (!status.lists_read)
        return;
    needs_t needs;
    std::set<std::string> incoming;
    for (const av_list_t *user = users.users.head(); user; user = user->next) {
        add_needs(user, needs);
        status.users += takes_inbox_delivery(user);
    }
    for (const seen_line_t &line : modems.lines)
        incoming.insert(av_getv(line.entry.get(), "incoming_dir"));
    status.incoming = incoming.size();
    if (rpcbind_answers)
        status.parts.push_back(ask_registry(needs.mail || needs.notices, {seconds, 0}));
    status.parts.push_back(look_for_agent(needs));
    status.parts.push_back(look_for_converters(needs));
    look_at_disks(directories(users, incoming), seconds, status.parts);
}

service_status_t ask_service(const std::string &host, const std::string &user, int seconds)
{
    service_status_t status;
    status.host = host;
    const std::optional<in_addr> address = find_host(host.c_str(), seconds);
    if (!address) {
        const std::string reason = "no IPv4 address for host " + host + ": check its name";
        status.parts = {{"rpcbind", part_state::FAILED, reason}, {"faxtrayd", part_state::FAILED, not_found}};
        return status;
    }
    status.parts.push_back(ask_rpcbind(*address, {seconds, 0}));
    const bool rpcbind_answers = status.parts.back().state == part_state::OK;
    inbox_client client({user, "", 0}, seconds);
    status.parts.push_back(rpcbind_answers ? ask_daemon(client, status)
                                           : part_t{"faxtrayd", part_state::FAILED, not_found});
    if (is_own_address(*address))
        look_around(status, seconds, rpcbind_answers);
    return status;
}

}  // namespace faxtray
