// command_output: what the command-line programs share: how they start and end, and how they print text, JSON
// and progress.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <thread>

namespace faxtray {

// The body of a command's main(): takes the standard descriptors (see there), sets the locale, ignores
// SIGPIPE and SIGXFSZ, which would end the program in the middle of an output, and calls `run`. Returns the
// exit status: that of `run`, or `failed`, with a message on standard error, after an exception or when `run`
// returned 0 but standard output could not be written whole.
int run_command(int argc, char **argv, int (*run)(int argc, char **argv), int failed);

// `text` with each byte that the locale cannot print as "\xNN" and each "\" as "\\", so that nothing a
// stranger wrote controls the terminal.
std::string printable(const std::string &text);
std::string printable_lines(const std::string &text);  // line feeds stay; later lines are indented

// `text` for documents in UTF-8: bytes that are not UTF-8, and control characters, become U+FFFD.
std::string plain_utf8(const std::string &text);

// `value` as indented text; bytes that are not UTF-8 become U+FFFD.
std::string json_text(const nlohmann::json &value);

// Prints it on standard output. Whether that succeeded is run_command()'s to find out.
void print_json(const nlohmann::json &value);

// Shows how far a piece of work has come, `what` being its title, while standard error is a terminal; else
// prints nothing. Bytes of a fetch are shown at once, pages once they have taken a second.
class progress_bar {
public:
    enum unit_t { BYTES, PAGES };
    progress_bar(std::string what, long total, unit_t unit = BYTES);  // 0 or less counts as complete
    ~progress_bar();                                                  // clears the line
    progress_bar(const progress_bar &) = delete;
    progress_bar &operator=(const progress_bar &) = delete;
    void add(size_t n);  // so many more are done

private:
    std::string what_;
    long total_, done_ = 0;
    unit_t unit_;
    bool on_terminal_, shown_ = false;
    std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
};

// While it exists, and once it has for a second, shows for how long: `what`, then minutes and seconds. Only
// while standard error is a terminal; nothing else may be printed there meanwhile.
class waiting_line {
public:
    explicit waiting_line(const std::string &what);
    ~waiting_line();  // clears the line
    waiting_line(const waiting_line &) = delete;
    waiting_line &operator=(const waiting_line &) = delete;

private:
    std::jthread clock_;  // since whoever waits is held by a call
};

// While it exists, what is printed on standard output goes to standard error: messages of decoders, of which
// some go there, are no part of a command's output.
class stdout_on_stderr {
public:
    stdout_on_stderr();
    ~stdout_on_stderr();
    stdout_on_stderr(const stdout_on_stderr &) = delete;
    stdout_on_stderr &operator=(const stdout_on_stderr &) = delete;

private:
    int stdout_;  // -1: standard output stays where it is
};

}  // namespace faxtray
