// The daemon merges the built-in settings, the section "default" and the user's own, each over the one
// before; only the administrator's built-in settings go over those of "default".
#include "check/effective.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>

#include "check/settings_check.h"
#include "config/user_list_file.h"
#include "config/user_settings.h"
#include "util/command_output.h"

namespace faxtray {

namespace {

struct setting_t {
    std::string name, value, origin;  // of the origin, the beginning of a sentence
    long line;                        // 0: none
};

}  // namespace

static constexpr char built_in[] = "built in", from_default[] = "default section", own[] = "own section";

static setting_t origin_of(const seen_users_t &list, const av_list_t *user, const av_node_t *node)
{
    const bool is_admin = strcmp(user->key, "admin") == 0;
    const bool is_default = strcmp(user->key, "default") == 0;
    const seen_section_t *section = is_default ? nullptr : list.section_of(user);
    if (const seen_attribute_t *line = section ? section->find(node->attr) : nullptr)
        return {node->attr, node->value, own, line->line};
    const bool hidden = is_admin && av_get_node(list.built_in_admin.get(), node->attr);
    if (const seen_attribute_t *line =
            list.default_section && !hidden ? list.default_section->find(node->attr) : nullptr)
        return {node->attr, node->value, from_default, line->line};
    return {node->attr, node->value, built_in, 0};
}

static std::vector<setting_t> settings_of(const seen_users_t &list, const av_list_t *user, bool changed)
{
    std::vector<setting_t> settings;
    for (const av_node_t *node = user->nodes; node; node = node->next) {
        setting_t setting = origin_of(list, user, node);
        if (changed && setting.origin == built_in)
            continue;
        if (is_secret(setting.name))
            setting.value = setting.value.empty() ? "(not set)" : "(set)";
        settings.push_back(std::move(setting));
    }
    if (!av_get_node(user, "password"))
        settings.push_back({"password", "(not set)", built_in, 0});
    return settings;
}

static void print_user(const av_list_t *user, const std::vector<setting_t> &settings)
{
    static constexpr size_t widest = 40;  // of a column; longer texts push the others aside
    size_t name_width = 0, value_width = 0;
    for (const setting_t &setting : settings) {
        name_width = std::max(name_width, std::min(setting.name.size(), widest));
        value_width = std::max(value_width, std::min(printable(setting.value).size(), widest));
    }
    printf("[%s]\n", printable(user->key).c_str());
    for (const setting_t &setting : settings) {
        printf("    %-*s  %-*s  %s", static_cast<int>(name_width), setting.name.c_str(),
               static_cast<int>(value_width), printable(setting.value).c_str(), setting.origin.c_str());
        if (setting.line > 0)
            printf(", line %ld", setting.line);
        putchar('\n');
    }
    // Of a user's inbox the settings say only half: the rest is the name, and where the daemon is started.
    if (strcmp(user->key, "default") != 0 && takes_inbox_delivery(user)) {
        const c_string inbox(ui_inbox_path(user));
        printf("    inbox: %s\n",
               inbox ? printable(inbox.get()).c_str() : "none, since its path is not valid");
    }
}

static void add_json(nlohmann::json &all, const av_list_t *user, const std::vector<setting_t> &settings)
{
    for (const setting_t &setting : settings) {
        nlohmann::json object = {{"user", user->key},
                                 {"attribute", setting.name},
                                 {"value", setting.value},
                                 {"origin", setting.origin},
                                 {"line", nullptr}};
        if (setting.line > 0)
            object["line"] = setting.line;
        all.push_back(std::move(object));
    }
}

bool show_settings(const seen_users_t &list, const std::string &name, bool changed, bool json)
{
    std::vector<const av_list_t *> users;
    for (const av_list_t *user = name.empty() ? list.users.head() : nullptr; user; user = user->next)
        users.push_back(user);
    if (name == "default")
        users.push_back(list.defaults.get());
    else if (const av_list_t *user = name.empty() ? nullptr : list.users.get(name.c_str()))
        users.push_back(user);

    nlohmann::json all = nlohmann::json::array();
    for (const av_list_t *user : users) {
        const std::vector<setting_t> settings = settings_of(list, user, changed);
        if (json)
            add_json(all, user, settings);
        else
            print_user(user, settings);
    }
    if (json && !users.empty())
        print_json(all);
    return !users.empty();
}

}  // namespace faxtray
