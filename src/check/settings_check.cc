// The names are those of the daemon's own tables and a few that have no default; the values, those of its
// enumerations. What a value does instead stands here once for each attribute.
#include "check/settings_check.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "check/spelling.h"
#include "config/attributes.h"
#include "config/modem_record.h"
#include "config/user_settings.h"
#include "util/paths.h"
#include "util/text.h"

namespace faxtray {

using words_t = std::vector<std::string>;

static void add_names(words_t &names, const av_list_t *list)
{
    for (const av_node_t *node = list ? list->nodes : nullptr; node; node = node->next)
        names.push_back(node->attr);
}

static words_t user_attributes(const seen_users_t &list)
{
    words_t names = {"password", "human_name", "forwarder", "group_gui"};
    for (int attr = 0; as_get_attr(attr); attr++)
        names.push_back(as_get_attr(attr));
    add_names(names, list.built_in.get());
    return names;
}

static words_t modem_attributes(const seen_modems_t &list)
{
    words_t names = {"dev_root",
                     "class",
                     "modem_type",
                     "user_modem_config",
                     "mchannel_remote_host",
                     "mchannel_local_channel",
                     "mchannel_remote_channel"};
    add_names(names, list.built_in.get());
    return names;
}

static bool contains(const words_t &words, const std::string &word)
{
    for (const std::string &known : words)
        if (known == word)
            return true;
    return false;
}

bool is_secret(const std::string &attribute)
{
    return strcasestr(attribute.c_str(), "pass") || strcasestr(attribute.c_str(), "pwd") ||
           nearest(attribute, {"password"}) == "password";
}

static void check_name(const words_t &known, const seen_attribute_t &line, const place_t &place,
                       problems_t &problems)
{
    if (contains(known, line.name))
        return;
    const std::string meant = nearest(line.name, known);
    if (meant.empty())
        problems.add(trap("unknown-attribute"), place, {line.name});
    else
        problems.add(trap("misspelt-attribute"), place, {line.name, meant});
}

// Enumerated values

static words_t values_of(int attr)
{
    words_t values;
    for (int value = IV_NOTIFY_LEVEL_ERROR; value <= IV_WHEN_TO_NOTIFY_FAX_OUTGOING; value++)
        if (const char *text = as_get_value_string(attr, value))
            values.push_back(text);
    return values;
}

// What happens with a value that is none of the attribute's.
static const char *consequence_of(int attr)
{
    switch (attr) {
    case AS_ADMIN_NOTIFY_LEVEL:
        return "no entry of the exception log is mailed";
    case AS_DELIVERY_BODY_ENCODING:
        return "uuencode is used";
    case AS_DELIVERY_FILE_FORMAT:
        return "faxes stay as they were received";
    case AS_DELIVERY_METHOD:
        return "no fax can be delivered";
    case AS_DELIVERY_NAMING:
        return "posix is used";
    default:
        return "no notice is sent";
    }
}

static void check_value(int attr, const char *value, const place_t &place, problems_t &problems)
{
    const int handle = as_get_value_handle(attr, value);
    if (handle < 0)
        problems.add(trap("bad-value"), place,
                     {as_get_attr(attr), value, consequence_of(attr), did_you_mean(value, values_of(attr))});
    else if (handle == IV_HOW_TO_NOTIFY_EXEC)
        problems.add(trap("notify-exec"), place);
    else if (handle == IV_FILE_FORMAT_G3MR || handle == IV_FILE_FORMAT_G4)
        problems.add(trap("coded-as-mh"), place, {value});
}

static void check_method(const char *value, const place_t &place, problems_t &problems)
{
    std::string method = value;
    check_value(AS_DELIVERY_METHOD, cut_keyword(method.data()), place, problems);
}

// The words of a text, whatever stands between them.
static words_t words_of(const std::string &text)
{
    static constexpr char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";
    words_t words;
    for (size_t at = 0, end = 0; (at = text.find_first_of(letters, end)) != text.npos;) {
        end = std::min(text.find_first_not_of(letters, at), text.size());
        words.push_back(text.substr(at, end - at));
    }
    return words;
}

// The daemon searches the whole for the events' names. Words of the built-in value are known to other
// programs of the fax system.
static void check_events(const std::string &value, const std::string &built_in, const place_t &place,
                         problems_t &problems)
{
    const words_t events = values_of(AS_WHEN_TO_NOTIFY), others = words_of(built_in), words = words_of(value);
    for (const std::string &word : words) {
        bool known = contains(others, word);
        for (const std::string &event : events)
            known = known || word.find(event) != word.npos;
        if (!known)
            problems.add(trap("unknown-event"), place, {word, did_you_mean(word, events)});
    }
    if (words.size() > 1 && value.find("never") != value.npos)
        problems.add(trap("never-among-events"), place);
}

// Other values

// As the hash of a password is printed: hexadecimal, without leading zeros.
static bool is_hash(const std::string &text)
{
    return text.size() <= 8 && text.find_first_not_of("0123456789abcdef") == text.npos &&
           (text[0] != '0' || text.size() == 1);
}

static void check_volume(const char *value, const place_t &place, problems_t &problems)
{
    char *end;
    const long volume = strtol(value, &end, 10);
    if (end == value)
        problems.add(trap("no-number"), place, {value});
    else if (volume < 1)
        problems.add(trap("no-limit"), place);
}

// What cannot be handed to the mail agent: a word that looks like an option, or an address that is nothing
// but a scheme.
static bool is_address(const std::string &value)
{
    const size_t scheme = value.find("://");
    return value[0] != '-' && value.find(" -") == value.npos &&
           (scheme == value.npos || (scheme + 3 < value.size() && value[scheme + 3] != ';'));
}

// Attributes that mean one user, so that it is odd if all inherit them.
static bool is_personal(const std::string &name)
{
    return contains({"password", "email_address", "delivery_dir", "group", "forwarder", "human_name"}, name);
}

static void check_user_place(const seen_section_t &section, const seen_attribute_t &line,
                             const place_t &place, problems_t &problems)
{
    const int attr = as_get_attr_handle(line.name.c_str());
    const bool of_admin =
        attr == AS_ADMIN_NOTIFY_LEVEL || attr == AS_ADMIN_EXCEPTION_VOLUME || attr == AS_SERVER_MAIL_FROM;
    if (of_admin && section.key != "admin")
        problems.add(trap("admin-only"), place, {line.name});
    if (section.key == "default" && is_personal(line.name) && !line.value.empty())
        problems.add(trap("shared-setting"), place, {line.name});
}

static void check_user_value(const seen_users_t &list, const seen_attribute_t &line, const place_t &place,
                             problems_t &problems)
{
    const int attr = as_get_attr_handle(line.name.c_str());
    const as_attr_t *row = as_get_entry(attr);
    const char *value = line.value.c_str();
    if (line.value.empty())
        return;
    if (attr == AS_DELIVERY_METHOD)
        check_method(value, place, problems);
    else if (attr == AS_WHEN_TO_NOTIFY)
        check_events(value, shown(av_getv(list.built_in.get(), row->name)), place, problems);
    else if (row && row->values)
        check_value(attr, value, place, problems);
    else if (attr == AS_ADMIN_EXCEPTION_VOLUME)
        check_volume(value, place, problems);
    else if (attr == AS_EMAIL_ADDRESS && !is_address(line.value))
        problems.add(trap("no-address"), place, {value});
    else if ((attr == AS_DELIVERY_DIR || attr == AS_DELIVERY_DIR_ROOT) && !is_valid_path(value))
        problems.add(trap("bad-path"), place, {"those whose inbox it is have none"});
    else if (line.name == "password" && !is_hash(line.value))
        problems.add(trap("no-hash"), place);
    else if (line.name == "fax_forwarding" && !strchr("YyTtNnFf", *value))
        problems.add(trap("counts-as-no"), place, {value});
}

void check_user_settings(const seen_users_t &list, problems_t &problems)
{
    const words_t known = user_attributes(list);
    for (const seen_section_t &section : list.sections)
        for (const seen_attribute_t &line : section.attributes) {
            const place_t place = list.at(line.line);
            check_name(known, line, place, problems);
            check_user_place(section, line, place, problems);
            check_user_value(list, line, place, problems);
        }
}

// Fax lines

static bool is_flag(const std::string &name)
{
    return contains({"receive_quality_checking", "unsupervised_dialing", "hardware_flow_control"}, name);
}

// A value that is neither of the two spellings of off, nor looks like on.
static bool is_mistaken_for_on(const std::string &value)
{
    return !contains({"false", "FALSE", "true", "TRUE"}, value);
}

static void check_modem_value(const seen_attribute_t &line, const place_t &place, problems_t &problems)
{
    const char *value = line.value.c_str();
    if ((line.name == "incoming_dir" || line.name == "incoming_root") && !is_valid_path(value))
        problems.add(trap("bad-path"), place, {"the default is used instead"});
    else if (line.name == "incoming_root" && !is_full_path(value))
        problems.add(trap("relative-incoming-root"), place);
    else if (is_flag(line.name) && is_mistaken_for_on(line.value))
        problems.add(trap("flag-is-on"), place, {line.name});
    else if (!line.value.empty() && !mi_is_valid_setting(line.name.c_str(), value))
        problems.add(trap("modem-value"), place, {line.name, value});
}

void check_modem_settings(const seen_modems_t &list, problems_t &problems)
{
    const words_t known = modem_attributes(list);
    for (const seen_section_t &section : list.sections)
        for (const seen_attribute_t &line : section.attributes) {
            const place_t place = list.at(line.line);
            check_name(known, line, place, problems);
            check_modem_value(line, place, problems);
        }
}

}  // namespace faxtray
