#include "scenarios/step.h"

namespace faxtray {

// The next word at `*at`, up to white space outside quotation marks, which go; \n, \" and \xHH inside them.
static std::string next_word(const std::string &line, size_t *at)
{
    std::string word;
    bool quoted = false;
    for (; *at < line.size() && (quoted || line[*at] != ' '); ++*at) {
        if (line[*at] == '"') {
            quoted = !quoted;
        } else if (quoted && line[*at] == '\\') {
            const char ch = line[++*at];
            if (ch == 'x') {
                word += static_cast<char>(std::stoi(line.substr(*at + 1, 2), nullptr, 16));
                *at += 2;
            } else {
                word += ch == 'n' ? '\n' : ch;
            }
        } else {
            word += line[*at];
        }
    }
    while (*at < line.size() && line[*at] == ' ')
        ++*at;
    return word;
}

step_t parse_step(const std::string &line)
{
    step_t step;
    size_t at = 0;
    step.verb = next_word(line, &at);
    step.rest = line.substr(at);
    while (at < line.size()) {
        const bool bare = line[at] != '"';
        const std::string word = next_word(line, &at);
        const size_t equals = word.find('=');
        if (bare && (word == "as" || word == "from" || word == "to"))
            step.options[word] = next_word(line, &at);
        else if (bare && equals != std::string::npos)
            step.options[word.substr(0, equals)] = word.substr(equals + 1);
        else
            step.words.push_back(word);
    }
    return step;
}

std::string step_t::option(const char *name, const std::string &otherwise) const
{
    const auto found = options.find(name);
    return found == options.end() ? otherwise : found->second;
}

uint32_t step_t::number(const char *name, uint32_t otherwise) const
{
    return static_cast<uint32_t>(std::stoll(option(name, std::to_string(otherwise))));
}

}  // namespace faxtray
