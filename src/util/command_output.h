// command_output: what the command-line programs share: how they start and end, and how they print text, JSON
// and progress.
#pragma once

#include <sys/types.h>

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace faxtray {

// The body of a command's main(): sets the locale, ignores SIGPIPE and SIGXFSZ, which would end the program
// in the middle of an output, and calls `run`. Returns the exit status: that of `run`, or `failed`, with a
// message on standard error, after an exception or when `run` returned 0 but standard output could not be
// written whole.
int run_command(int argc, char **argv, int (*run)(int argc, char **argv), int failed);

// `text` with each byte that the locale cannot print as "\xNN" and each "\" as "\\", so that nothing a
// stranger wrote controls the terminal.
std::string printable(const std::string &text);
std::string printable_lines(const std::string &text);  // line feeds stay; later lines are indented

// `value` as indented text; bytes that are not UTF-8 become U+FFFD.
std::string json_text(const nlohmann::json &value);

// Prints it on standard output. Whether that succeeded is run_command()'s to find out.
void print_json(const nlohmann::json &value);

// Shows how far a fetch has come, `what` being its title, while standard error is a terminal; else prints
// nothing.
class progress_bar {
public:
    progress_bar(std::string what, u_int total);  // `total` in bytes; 0 counts as complete
    ~progress_bar();                              // clears the line
    progress_bar(const progress_bar &) = delete;
    progress_bar &operator=(const progress_bar &) = delete;
    void add(size_t bytes);  // so many more have come

private:
    std::string what_;
    unsigned long long total_, done_ = 0;
    bool shown_;
};

}  // namespace faxtray
