// capture: what the code under test prints and traces.
#pragma once

#include <cstdio>
#include <string>

#include "support/temp_dir.h"

namespace faxtray {

// Takes what reaches `stream` (stdout or stderr), by stdio and by write(2) on its descriptor alike.
class capture {
public:
    explicit capture(FILE *stream);
    ~capture();
    capture(const capture &) = delete;
    capture &operator=(const capture &) = delete;

    std::string text();  // stops, and returns all that was printed

private:
    void stop();

    FILE *stream_, *file_;
    int saved_;  // the stream's own descriptor, -1 once it is back
};

class capture_stderr : public capture {
public:
    capture_stderr() : capture(stderr) {}
};

class capture_stdout : public capture {
public:
    capture_stdout() : capture(stdout) {}
};

// Tracing is on, into a file of its own, for as long as this lives. One at a time.
class trace_on {
public:
    trace_on();
    ~trace_on();

    std::string text() const;  // the lines so far, without the time in front of each

private:
    temp_dir dir_;
};

}  // namespace faxtray
