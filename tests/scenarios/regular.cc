#include "scenarios/regular.h"

#include <regex.h>

#include <cstdlib>
#include <ctime>
#include <map>

namespace faxtray {

static const time_t start = time(nullptr);
static std::map<std::string, int> numbers;  // of fax ids
static int last_number;

void forget_fax_ids()
{
    numbers.clear();
}

// A time by its distance from the start, or `otherwise` when it is more than two days away.
static std::string relative(time_t when, const std::string &otherwise)
{
    const long distance = labs(when - start), unit = distance < 3000 ? 60 : 3600,
               rounded = (distance + unit / 2) / unit;
    if (distance > 48 * 3600)
        return otherwise;
    if (unit == 60 && rounded < 2)
        return "<now>";
    return (when < start ? "<now-" : "<now+") + std::to_string(rounded) + (unit == 60 ? "m>" : "h>");
}

// The time of day is local.
static std::string relative_date(const std::string &date, const char *form)
{
    struct tm parts = {};
    parts.tm_isdst = -1;
    strptime(date.c_str(), form, &parts);
    return relative(mktime(&parts), date);
}

// Ids are counted from the time of the daemon's start.
static std::string shown_id(const std::string &id)
{
    if (relative(atol(id.c_str()), "").empty())
        return id;
    int &number = numbers[id];
    if (number == 0)
        number = ++last_number;
    return "<fax " + std::to_string(number) + ">";
}

static constexpr struct {
    const char *form;
    std::string (*shown)(const std::string &found);
} rules[] = {
    {"[0-9]{2}-[A-Z][a-z]{2}-[0-9]{4} [0-9:]{8}",
     [](const std::string &s) { return relative_date(s, "%d-%b-%Y %T"); }},
    {"[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9:]{8} [0-9]{4}",
     [](const std::string &s) { return relative_date(s, "%c"); }},
    {"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}Z",
     [](const std::string &s) { return relative_date(s, "%FT%TZ"); }},
    {"\\bport=[0-9]+\\b", [](const std::string &) { return std::string("port=<port>"); }},
    {"\\b[0-9]{2}:[0-9]{2}:[0-9]{2} ",
     [](const std::string &) { return std::string(); }},  // in front of trace lines
    {"\\bmtime [0-9]{10}\\b",
     [](const std::string &s) { return "mtime " + relative(atol(s.c_str() + 6), s.substr(6)); }},
    {"\\b[0-9]{10}\\b", shown_id},
    {"\\b[a-z]{3}[0-9]{2}aa[a-z]\\b",
     [](const std::string &s) { return "<day>" + s.substr(5); }},  // 8.3 names
    {"\\[[^] ]*\\.cc:[0-9]+\\]", [](const std::string &) { return std::string("[<source>]"); }},
    {"[a-z_/]+\\.cc,[0-9]+", [](const std::string &) { return std::string("<source>"); }},
    {"\\bpid [0-9]+\\b", [](const std::string &) { return std::string("pid <pid>"); }},
    {"\\bFDF\\.[a-zA-Z]+", [](const std::string &) { return std::string("FDF.<name>"); }},
};

std::string made_regular(std::string text)
{
    for (const auto &[form, shown] : rules) {
        regex_t compiled;
        regmatch_t match;
        if (regcomp(&compiled, form, REG_EXTENDED) != 0)
            abort();
        for (size_t at = 0; regexec(&compiled, text.c_str() + at, 1, &match, at ? REG_NOTBOL : 0) == 0;) {
            const size_t from = at + static_cast<size_t>(match.rm_so),
                         size = static_cast<size_t>(match.rm_eo - match.rm_so);
            const std::string replacement = shown(text.substr(from, size));
            text.replace(from, size, replacement);
            at = from + replacement.size();
        }
        regfree(&compiled);
    }
    return text;
}

}  // namespace faxtray
