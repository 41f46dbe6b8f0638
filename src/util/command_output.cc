#include "util/command_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <exception>
#include <mutex>
#include <nlohmann/json.hpp>
#include <system_error>

#include "util/standard_descriptors.h"

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

std::string plain_utf8(const std::string &text)
{
    static const std::string replacement = "\xEF\xBF\xBD";  // U+FFFD
    // The JSON library knows what UTF-8 is.
    const std::string valid = nlohmann::json::parse(json_text(text)).get<std::string>();
    std::string plain;
    for (size_t i = 0; i < valid.size(); i++) {
        const unsigned char byte = static_cast<unsigned char>(valid[i]);
        if (byte < ' ' || byte == 0x7F) {
            plain += replacement;
        } else if (byte == 0xC2 && static_cast<unsigned char>(valid[i + 1]) < 0xA0) {
            plain += replacement;  // U+0080 to U+009F, the other control characters
            i++;
        } else {
            plain += valid[i];
        }
    }
    return plain;
}

void print_json(const nlohmann::json &value)
{
    puts(json_text(value).c_str());
}

static constexpr char clear_line[] = "\r\x1b[K";  // back to its start, then erase to its end

progress_bar::progress_bar(std::string what, long total, unit_t unit)
    : what_(std::move(what)), total_(total), unit_(unit), on_terminal_(isatty(STDERR_FILENO) == 1)
{
    add(0);
}

progress_bar::~progress_bar()
{
    if (shown_)
        fputs(clear_line, stderr);
}

void progress_bar::add(size_t n)
{
    using namespace std::chrono;
    done_ += static_cast<long>(n);
    shown_ = shown_ || (on_terminal_ && (unit_ == BYTES || steady_clock::now() - began_ >= seconds(1)));
    if (!shown_)
        return;
    constexpr size_t width = 30;
    const double share = done_ < total_ ? static_cast<double>(done_) / static_cast<double>(total_) : 1;
    std::string bar(static_cast<size_t>(share * width), '#');
    bar.resize(width, '.');
    const long unit = unit_ == BYTES ? 1024 : 1;
    fprintf(stderr, "\r%s [%s] %3d %%  %ld of %ld %s", what_.c_str(), bar.c_str(),
            static_cast<int>(share * 100), done_ / unit, total_ / unit, unit_ == BYTES ? "KB" : "pages");
    fflush(stderr);
}

static void show_waiting(const std::stop_token &end, const std::string &what)
{
    using namespace std::chrono_literals;
    std::mutex mutex;
    std::condition_variable_any ended;
    std::unique_lock lock(mutex);
    for (int seconds = 1; !ended.wait_for(lock, end, 1s, [&] { return end.stop_requested(); }); seconds++)
        fprintf(stderr, "\r%s: %d:%02d", what.c_str(), seconds / 60, seconds % 60);
}

waiting_line::waiting_line(const std::string &what)
try {
    if (isatty(STDERR_FILENO) == 1)
        clock_ = std::jthread(show_waiting, what);
} catch (const std::system_error &) {  // no thread to be had: what is waited for matters more
}

waiting_line::~waiting_line()
{
    if (!clock_.joinable())
        return;
    clock_.request_stop();
    clock_.join();
    fputs(clear_line, stderr);
}

stdout_on_stderr::stdout_on_stderr()
{
    fflush(stdout);
    stdout_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (stdout_ >= 0)
        dup2(STDERR_FILENO, STDOUT_FILENO);
}

stdout_on_stderr::~stdout_on_stderr()
{
    if (stdout_ < 0)
        return;
    fflush(stdout);
    dup2(stdout_, STDOUT_FILENO);
    close(stdout_);
}

int run_command(int argc, char **argv, int (*run)(int argc, char **argv), int failed)
{
    if (!hold_standard_descriptors())
        return failed;
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
