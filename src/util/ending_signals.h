// ending_signals: the signals that end a program which does nothing about them, and holding them back while a
// file is half made.
#pragma once

#include <csignal>

namespace faxtray {

// All of them but those that are ignored: a command started by nohup ignores SIGHUP.
sigset_t ending_signals();

// Holds these signals back while it exists. One that came meanwhile then does what it would have done.
class ending_signals_held {
public:
    ending_signals_held() noexcept;
    ~ending_signals_held();
    ending_signals_held(const ending_signals_held &) = delete;
    ending_signals_held &operator=(const ending_signals_held &) = delete;

    bool one_came() const noexcept;  // the program is to end as soon as it has tidied up

private:
    sigset_t held_, before_;
};

}  // namespace faxtray
