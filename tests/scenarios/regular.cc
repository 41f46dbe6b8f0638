#include "scenarios/regular.h"

#include <regex.h>

#include <cstdlib>

namespace faxtray {

namespace {

class pattern_t {
public:
    explicit pattern_t(const char *form)
    {
        if (regcomp(&compiled_, form, REG_EXTENDED) != 0)
            abort();
    }
    ~pattern_t() { regfree(&compiled_); }
    pattern_t(const pattern_t &) = delete;
    pattern_t &operator=(const pattern_t &) = delete;

    // Replaces each match in `text` by what `replacement` makes of it.
    template <class F> void replace(std::string *text, F replacement) const
    {
        regmatch_t match;
        for (size_t at = 0; regexec(&compiled_, text->c_str() + at, 1, &match, at ? REG_NOTBOL : 0) == 0;) {
            const size_t from = at + static_cast<size_t>(match.rm_so);
            const size_t length = static_cast<size_t>(match.rm_eo - match.rm_so);
            const std::string shown = replacement(text->substr(from, length));
            text->replace(from, length, shown);
            at = from + shown.size();
        }
    }

private:
    regex_t compiled_;
};

}  // namespace

// A time by its distance from the scenario's start; "" when it is more than two days away.
static std::string relative(time_t when, time_t start)
{
    static constexpr long minute = 60, hour = 60 * minute;
    const long distance = when - start, rounded = (distance + (distance < 0 ? -30 : 30)) / minute * minute;
    if (labs(distance) > 48 * hour)
        return "";
    if (labs(rounded) < 2 * minute)
        return "<now>";
    // A slow run may be minutes late: whole hours are given as such.
    const long late = ((rounded % hour) + hour) % hour;
    if (late <= 10 * minute && labs(rounded) >= hour)
        return "<now" + std::string(rounded < 0 ? "-" : "+") + std::to_string(labs(rounded - late) / hour) +
               "h>";
    return "<now" + std::string(rounded < 0 ? "-" : "+") + std::to_string(labs(rounded) / minute) + "m>";
}

// What a date of these words tells, in local time.
static time_t parsed(const std::string &date, const char *form)
{
    struct tm parts = {};
    strptime(date.c_str(), form, &parts);
    parts.tm_isdst = -1;
    return mktime(&parts);
}

std::string regular_t::made_regular(std::string text)
{
    static const pattern_t log_time("[0-9]{2}-[A-Z][a-z]{2}-[0-9]{4} [0-9:]{8}"),
        date("[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9:]{8} [0-9]{4}"), mtime("\\bmtime [0-9]{10}\\b"),
        dos_name("\\b[a-z]{3}[0-9]{2}aa[a-z]\\b"), fax_id("\\b[0-9]{10}\\b"),
        source("\\[[^] ]*\\.cc:[0-9]+\\]"), pid("\\bpid [0-9]+\\b"),
        trace_time("\\b[0-9]{2}:[0-9]{2}:[0-9]{2} "), scratch("\\bFDF\\.[a-zA-Z]+");
    auto or_itself = [](const std::string &shown, const std::string &found) {
        return shown.empty() ? found : shown;
    };
    log_time.replace(&text, [&](const std::string &found) {
        return or_itself(relative(parsed(found, "%d-%b-%Y %H:%M:%S"), start_), found);
    });
    date.replace(&text, [&](const std::string &found) {
        return or_itself(relative(parsed(found, "%a %b %d %H:%M:%S %Y"), start_), found);
    });
    trace_time.replace(&text, [](const std::string &) { return ""; });
    mtime.replace(&text, [&](const std::string &found) {
        const std::string shown = relative(atol(found.c_str() + 6), start_);
        return shown.empty() ? found : "mtime " + shown;
    });
    // Fax ids are counted from the time of the start.
    fax_id.replace(&text, [&](const std::string &found) {
        if (relative(atol(found.c_str()), start_).empty())
            return found;
        return "<fax " + std::to_string(ids_.emplace(found, ids_.size() + 1).first->second) + ">";
    });
    dos_name.replace(&text, [](const std::string &found) { return "<day>" + found.substr(5); });
    source.replace(&text, [](const std::string &) { return "[<source>]"; });
    pid.replace(&text, [](const std::string &) { return "pid <pid>"; });
    scratch.replace(&text, [](const std::string &) { return "FDF.<name>"; });
    return text;
}

}  // namespace faxtray
