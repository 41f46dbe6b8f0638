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

static void print_table(const service_status_t &status, bool with_host)
{
    if (with_host)
        printf("host %s\n", printable(status.host).c_str());
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

static nlohmann::json to_json(const service_status_t &status)
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
    return object;
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

namespace {

// A metric: all of its samples follow its two lines of comment.
class metric_t {
public:
    metric_t(const std::string &name, const char *help)
        : name_(name), text_("# HELP " + name + " " + help + "\n# TYPE " + name + " gauge\n")
    {
    }

    void add(const service_status_t &of, double value, const char *label = nullptr,
             const std::string &is = "")
    {
        text_ += name_ + "{host=" + quoted(of.host) +
                 (label ? std::string(",") + label + "=" + quoted(is) : std::string()) + "} " +
                 number(value) + "\n";
    }

    const std::string &text() const { return text_; }

private:
    std::string name_, text_;
};

}  // namespace

std::string prometheus_text(const std::vector<service_status_t> &statuses)
{
    metric_t ok("faxtray_ok", "Whether all is well with the fax service.");
    metric_t up("faxtray_up", "Whether a part of the fax service works.");
    metric_t version("faxtray_version_info", "The version that faxtrayd tells.");
    metric_t answer("faxtray_answer_seconds", "How long faxtrayd took to answer.");
    metric_t inboxes("faxtray_inboxes", "Inboxes in the server's lists.");
    metric_t disks("faxtray_disk_free_ratio", "Room left where faxes are kept, 0 to 1.");
    for (const service_status_t &status : statuses) {
        ok.add(status, status.is_well());
        for (const part_t &part : status.parts)
            if (!part.path.empty())
                disks.add(status, part.free_share, "path", part.path);
            else if (part.state != part_state::NOT_NEEDED)
                up.add(status, part.state == part_state::OK, "part", word_of(part));
        if (!status.version.empty()) {
            version.add(status, 1, "version", status.version);
            answer.add(status, status.answer_seconds);
        }
        if (status.lists_read) {
            inboxes.add(status, static_cast<double>(status.users), "kind", "user");
            inboxes.add(status, static_cast<double>(status.incoming), "kind", "incoming");
        }
    }
    return ok.text() + up.text() + version.text() + answer.text() + inboxes.text() + disks.text();
}

exit_status status_command(const options &chosen)
{
    std::vector<service_status_t> statuses;
    for (const std::string &host : comma_separated(chosen.host))
        statuses.push_back(ask_service(host, chosen.user, std::min(chosen.timeout, longest_wait)));
    nlohmann::json all = nlohmann::json::array();
    for (const service_status_t &status : statuses)
        all.push_back(to_json(status));
    if (chosen.prometheus)
        fputs(prometheus_text(statuses).c_str(), stdout);
    else if (chosen.json)
        print_json(all.size() == 1 ? all[0] : all);
    else
        for (const service_status_t &status : statuses)
            print_table(status, statuses.size() > 1);
    const bool well = !statuses.empty() && std::all_of(statuses.begin(), statuses.end(),
                                                       [](const auto &status) { return status.is_well(); });
    return well ? EXIT_DONE : EXIT_REFUSED;
}

}  // namespace faxtray
