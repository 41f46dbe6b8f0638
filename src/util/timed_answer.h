// timed_answer: asks a question that may never be answered, as those to a resolver or a network file system.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace faxtray {

// What `question` returns, asked in a child process; none if that fails, dies or takes more than `seconds`.
// A child that cannot be killed at once, as one that waits for a disk, is left to itself. Changes that
// `question` makes to this process's memory are lost.
std::optional<std::string> timed_answer(long seconds, const std::function<std::string()> &question);

}  // namespace faxtray
