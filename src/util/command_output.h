// command_output: what the command-line programs share: how they start and end, and how they print text, JSON
// and progress.
#pragma once

#include <sys/types.h>

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace faxtray {

// The body of a command's main(): sets the locale, ignores the signals that would end the program in the
// middle of an output, and calls `run`. Returns the exit status: that of `run`, or `failed` after an
// exception or when standard output could not be written whole, with a message on standard error. Success is
// status 0.
int run_command(int argc, char **argv, int (*run)(int argc, char **argv), int failed);

// `text` with all that the locale cannot print as "\xNN" and "\" as "\\", so that nothing a stranger
// wrote steers the terminal.
std::string printable(const std::string &text);
std::string printable_lines(const std::string &text);  // line feeds stay; later lines are indented

void print_json(const nlohmann::json &value);  // bytes that are no UTF-8 are replaced

// How far a fetch has come, on a terminal at standard error; silent elsewhere.
class progress_bar {
public:
    progress_bar(std::string what, u_int total);
    ~progress_bar();  // takes it off the screen
    progress_bar(const progress_bar &) = delete;
    progress_bar &operator=(const progress_bar &) = delete;
    void add(size_t bytes);

private:
    std::string what_;
    unsigned long long total_, done_ = 0;
    bool shown_;
};

}  // namespace faxtray
