#include "util/command_output.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <exception>
#include <nlohmann/json.hpp>

namespace faxtray {

std::string printable(const std::string &text)
{
    std::string shown;
    std::mbstate_t state = {};
    for (size_t i = 0; i < text.size();) {
        wchar_t wide = 0;
        // A byte that begins no character (mbrtowc returns a huge number, or 0 for a zero byte) is escaped
        // alone, and the conversion starts over after it.
        size_t length = std::mbrtowc(&wide, text.data() + i, text.size() - i, &state);
        if (length == 0 || length > text.size() || !std::iswprint(static_cast<wint_t>(wide))) {
            char escaped[8];
            snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(text[i]));
            shown += escaped;
            state = {};
            i++;
        } else {
            shown += text[i] == '\\' ? "\\\\" : text.substr(i, length);
            i += length;
        }
    }
    return shown;
}

std::string printable_lines(const std::string &text)
{
    std::string shown;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        shown += (begin == 0 ? "" : "\n  ") + printable(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return shown;
}

std::string json_text(const nlohmann::json &value)
{
    // Faxes' names and messages may be in any encoding: dump() would throw for what is not UTF-8.
    return value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

void print_json(const nlohmann::json &value)
{
    puts(json_text(value).c_str());
}

progress_bar::progress_bar(std::string what, u_int total)
    : what_(std::move(what)), total_(total), shown_(isatty(STDERR_FILENO) == 1)
{
    add(0);
}

progress_bar::~progress_bar()
{
    if (shown_)
        fputs("\r\x1b[K", stderr);  // back to the line's start, then erase to its end
}

void progress_bar::add(size_t bytes)
{
    done_ += bytes;
    if (!shown_)
        return;
    constexpr int width = 30;
    unsigned percent = total_ ? static_cast<unsigned>(done_ * 100 / total_) : 100;
    std::string bar(percent * width / 100, '#');
    bar.resize(width, '.');
    fprintf(stderr, "\r%s [%s] %3u %%  %llu of %llu KB", what_.c_str(), bar.c_str(), percent, done_ / 1024,
            total_ / 1024);
    fflush(stderr);
}

int run_command(int argc, char **argv, int (*run)(int argc, char **argv), int failed)
{
    setlocale(LC_ALL, "");
    signal(SIGPIPE, SIG_IGN);  // a server or a reader that hangs up is an error to report (EPIPE)
    signal(SIGXFSZ, SIG_IGN);  // and so is a file that may not grow (EFBIG)
    int status = failed;
    try {
        status = run(argc, argv);
    } catch (const std::exception &error) {
        fprintf(stderr, "%s: %s\n", program_invocation_short_name, error.what());
    }
    // Output that could not be written turns success into failure; a failure keeps its own status, which says
    // more.
    if ((fflush(stdout) != 0 || ferror(stdout)) && status == EXIT_SUCCESS) {
        fprintf(stderr, "%s: can't write the output: %s\n", program_invocation_short_name, strerror(errno));
        return failed;
    }
    return status;
}

}  // namespace faxtray
