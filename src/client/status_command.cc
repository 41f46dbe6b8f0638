// Names in JSON and of metrics are a promise to scripts; one may be added, none renamed.
#include "client/status_command.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "util/command_output.h"

namespace faxtray {

// However patient the user is with other commands: this one is for those who suspect that something hangs.
static constexpr int longest_wait = 5;  // seconds, for each answer

static const char *state_name(part_state state)
{
    switch (state) {
    case part_state::OK:
        return "ok";
    case part_state::WARNING:
        return "warning";
    case part_state::FAILED:
        return "failed";
    case part_state::NOT_NEEDED:
        break;
    }
    return "not needed";
}

static void print_table(const service_status_t &status)
{
    for (const part_t &part : status.parts) {
        std::string state = state_name(part.state);
        if (part.state == part_state::FAILED || part.state == part_state::WARNING)
            std::transform(state.begin(), state.end(), state.begin(), ::toupper);
        printf("%-12s%s%s%s\n", part.name.c_str(), state.c_str(), part.detail.empty() ? "" : ": ",
               printable(part.detail).c_str());
    }
    if (status.lists_read)
        printf("%-12s%zu of users, %zu incoming\n", "inboxes", status.users, status.incoming);
    for (const auto &[name, value] : status.settings)
        printf("%s = %s\n", printable(name).c_str(), printable(value).c_str());
}

// The name of a part as scripts have it.
static std::string word_of(const part_t &part)
{
    std::string word = part.name;
    std::replace(word.begin(), word.end(), ' ', '_');
    return word;
}

static void print_status_json(const service_status_t &status)
{
    nlohmann::json parts = nlohmann::json::object(), disks = nlohmann::json::array(),
                   settings = nlohmann::json::object();
    for (const part_t &part : status.parts) {
        nlohmann::json state = {{"state", state_name(part.state)}, {"detail", part.detail}};
        if (part.path.empty()) {
            parts[word_of(part)] = std::move(state);
        } else {
            state.update({{"path", part.path}, {"free", part.free_share}});
            disks.push_back(std::move(state));
        }
    }
    for (const auto &[name, value] : status.settings)
        settings[name] = value;
    nlohmann::json object = {{"ok", status.is_well()},
                             {"host", status.host},
                             {"parts", parts},
                             {"disks", disks},
                             {"settings", settings}};
    if (!status.version.empty())
        object.update({{"version", status.version}, {"answer_seconds", status.answer_seconds}});
    if (status.lists_read)
        object["inboxes"] = {{"users", status.users}, {"incoming", status.incoming}};
    print_json(object);
}

// Prometheus

// A label's value in quotes. The format escapes quotes, backslashes and line feeds as JSON does, and
// printable() leaves nothing else that JSON would escape.
static std::string quoted(const std::string &text)
{
    return nlohmann::json(printable(text)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// With a decimal point in every locale.
static std::string number(double value)
{
    return nlohmann::json(value).dump();
}

// What stands before the samples of a metric.
static std::string metric(const std::string &name, const char *help)
{
    return "# HELP " + name + " " + help + "\n# TYPE " + name + " gauge\n";
}

std::string prometheus_text(const service_status_t &status)
{
    std::string up = metric("faxtray_up", "Whether a part of the fax service works.");
    std::string disks = metric("faxtray_disk_free_ratio", "Room left where faxes are kept, 0 to 1.");
    for (const part_t &part : status.parts)
        if (!part.path.empty())
            disks +=
                "faxtray_disk_free_ratio{path=" + quoted(part.path) + "} " + number(part.free_share) + "\n";
        else if (part.state != part_state::NOT_NEEDED)
            up += "faxtray_up{part=" + quoted(word_of(part)) + "} " +
                  (part.state == part_state::OK ? "1" : "0") + "\n";
    std::string text = metric("faxtray_ok", "Whether all is well with the fax service.") + "faxtray_ok " +
                       (status.is_well() ? "1" : "0") + "\n" + up;
    if (!status.version.empty())
        text += metric("faxtray_version_info", "The version that faxtrayd tells.") +
                "faxtray_version_info{version=" + quoted(status.version) + "} 1\n" +
                metric("faxtray_answer_seconds", "How long faxtrayd took to answer.") +
                "faxtray_answer_seconds " + number(status.answer_seconds) + "\n";
    if (status.lists_read)
        text += metric("faxtray_inboxes", "Inboxes in the server's lists.") +
                "faxtray_inboxes{kind=\"user\"} " + std::to_string(status.users) + "\n" +
                "faxtray_inboxes{kind=\"incoming\"} " + std::to_string(status.incoming) + "\n" + disks;
    return text;
}

exit_status status_command(const options &chosen)
{
    const service_status_t status =
        ask_service(chosen.host, chosen.user, std::min(chosen.timeout, longest_wait));
    if (chosen.prometheus)
        fputs(prometheus_text(status).c_str(), stdout);
    else if (chosen.json)
        print_status_json(status);
    else
        print_table(status);
    return status.is_well() ? EXIT_DONE : EXIT_REFUSED;
}

}  // namespace faxtray
