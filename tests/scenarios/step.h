// step: one line of a scenario, taken apart: `put incoming/a.fax pages=2`, `list count=2 as Anna`.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace faxtray {

struct step_t {
    std::string verb, rest;                      // the first word; what follows it, as written
    std::vector<std::string> words;              // of the rest, without options
    std::map<std::string, std::string> options;  // NAME=VALUE, and "as", "from", "to" and the word after it
    std::string block;                           // the indented lines below

    std::string word(size_t n) const { return n < words.size() ? words[n] : ""; }
    std::string option(const char *name, const std::string &otherwise = "") const;
    uint32_t number(const char *name, uint32_t otherwise) const;
};

step_t parse_step(const std::string &line);

}  // namespace faxtray
