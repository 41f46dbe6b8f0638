// Texts come from the table of traps, so that the manual page can show all of them.
#include "check/problems.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>
#include <tuple>
#include <utility>

#include "util/command_output.h"

namespace faxtray {

// As much of a word as is readable in a line.
static std::string shortened(const std::string &word)
{
    static constexpr size_t longest = 100;
    return word.size() <= longest ? word : word.substr(0, longest) + "...";
}

static std::string filled(const char *text, const std::vector<std::string> &words)
{
    std::string all;
    for (const char *p = text; *p; p++) {
        if (*p != '%' || !isdigit(static_cast<unsigned char>(p[1]))) {
            all += *p;
            continue;
        }
        const auto word = static_cast<size_t>(*++p - '1');
        if (word < words.size())
            all += shortened(words[word]);
    }
    return all;
}

void problems_t::add(const trap_t *trap, const place_t &place, std::initializer_list<std::string> words)
{
    problems_.push_back({place, trap, filled(trap->text, words)});
}

const std::vector<problem_t> &problems_t::sorted()
{
    const auto place = [](const problem_t &p) {
        return std::make_tuple(p.place.file.empty(), std::cref(p.place.file), p.place.line);
    };
    std::stable_sort(problems_.begin(), problems_.end(),
                     [place](const problem_t &a, const problem_t &b) { return place(a) < place(b); });
    // What several users inherit is found several times, but not always in a row.
    std::vector<problem_t> once;
    std::set<std::pair<const trap_t *, std::string>> here;  // of one place
    for (problem_t &problem : problems_) {
        if (!once.empty() && place(once.back()) != place(problem))
            here.clear();
        if (here.emplace(problem.trap, problem.text).second)
            once.push_back(std::move(problem));
    }
    problems_ = std::move(once);
    return problems_;
}

const char *level_name(level_t level)
{
    return level == ERROR ? "error" : "warning";
}

static std::string place_text(const place_t &place)
{
    if (place.file.empty())
        return "this machine";
    return place.line > 0 ? place.file + ":" + std::to_string(place.line) : place.file;
}

void print_problems(const std::vector<problem_t> &problems)
{
    for (const problem_t &problem : problems)
        printf("%s: %s: %s [%s]\n", printable(place_text(problem.place)).c_str(),
               level_name(problem.trap->level), printable(problem.text).c_str(), problem.trap->name);
}

void print_problems_json(const std::vector<problem_t> &problems)
{
    nlohmann::json all = nlohmann::json::array();
    for (const problem_t &problem : problems) {
        nlohmann::json object = {{"file", nullptr},
                                 {"line", nullptr},
                                 {"level", level_name(problem.trap->level)},
                                 {"trap", problem.trap->name},
                                 {"text", problem.text}};
        if (!problem.place.file.empty())
            object["file"] = problem.place.file;
        if (problem.place.line > 0)
            object["line"] = problem.place.line;
        all.push_back(std::move(object));
    }
    print_json(all);
}

std::string lines_text(long count)
{
    return std::to_string(count) + (count == 1 ? " line" : " lines");
}

std::string lines_are(long count)
{
    return lines_text(count) + (count == 1 ? " is" : " are");
}

}  // namespace faxtray
