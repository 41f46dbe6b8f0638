// The answer comes through a pipe; a byte after it says that it is whole.
#include "util/timed_answer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <exception>

#include "util/io.h"
#include "util/owned.h"

namespace faxtray {

using steady = std::chrono::steady_clock;
static constexpr char whole_mark = '.';

[[noreturn]] static void answer_and_leave(int fd, const std::function<std::string()> &question)
{
    try {
        const std::string answer = question() + whole_mark;
        _exit(write_full(fd, answer.data(), answer.size()) ? 0 : 1);
    } catch (const std::exception &) {
        _exit(1);
    }
}

// Reads until the end of the file. False at the deadline, or on failure.
static bool read_until(steady::time_point deadline, int fd, std::string *text)
{
    for (;;) {
        const std::chrono::nanoseconds left = deadline - steady::now();
        const timespec wait = {left.count() / 1'000'000'000, left.count() % 1'000'000'000};
        pollfd readable = {fd, POLLIN, 0};
        const int ready = left.count() > 0 ? ppoll(&readable, 1, &wait, nullptr) : 0;
        if (ready == 0 || (ready < 0 && errno != EINTR))
            return false;
        char piece[4096];
        const ssize_t n = ready > 0 ? read(fd, piece, sizeof piece) : -1;
        if (n == 0)
            return true;
        if (n > 0)
            text->append(piece, static_cast<size_t>(n));
        else if (errno != EINTR)
            return false;
    }
}

std::optional<std::string> timed_answer(long seconds, const std::function<std::string()> &question)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return {};
    const unique_fd in(ends[0]);
    unique_fd out(ends[1]);
    const pid_t child = fork();
    if (child == 0)
        answer_and_leave(out.get(), question);
    if (child < 0)
        return {};
    out.reset();
    std::string answer;
    const bool in_time = read_until(steady::now() + std::chrono::seconds(seconds), in.get(), &answer);
    if (!in_time)
        kill(child, SIGKILL);
    while (waitpid(child, nullptr, in_time ? 0 : WNOHANG) < 0 && errno == EINTR) {
    }
    if (!in_time || answer.empty() || answer.back() != whole_mark)
        return {};
    answer.pop_back();
    return answer;
}

}  // namespace faxtray
