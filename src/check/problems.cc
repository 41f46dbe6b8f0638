// Texts come from the table of traps, so that the manual page can show all of them.
#include "check/problems.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <tuple>

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
    const auto order = [](const problem_t &p) {
        return std::make_tuple(p.place.file.empty(), std::cref(p.place.file), p.place.line);
    };
    std::stable_sort(problems_.begin(), problems_.end(),
                     [order](const problem_t &a, const problem_t &b) { return order(a) < order(b); });
    // What several users inherit is found several times, but not always in a row.
    std::vector<problem_t> once;
    for (problem_t &problem : problems_) {
        const auto same = [&problem](const problem_t &other) {
            return other.trap == problem.trap && other.text == problem.text;
        };
        auto first = std::find_if(once.rbegin(), once.rend(), [&problem](const problem_t &other) {
            return other.place.file != problem.place.file || other.place.line != problem.place.line;
        });
        if (std::find_if(once.rbegin(), first, same) == first)
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
    return place.file + (place.line > 0 ? ":" + std::to_string(place.line) : "");
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
