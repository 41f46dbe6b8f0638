// daemon: the real faxtrayd of this build, run on a site.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/site.h"

namespace faxtray {

struct ended_t {
    int status;          // exit status; 1000 + n when signal n ended it
    std::string output;  // standard output and standard error
};

// Starts a program in a directory, with its "tmp" for temporary files; what it prints is added to `output`.
pid_t spawn(const std::vector<std::string> &words, const std::string &directory, const std::string &output);
bool has_ended(pid_t child);
int await(pid_t child);  // its status, as in ended_t; killed if it does not end by itself

// Runs a shell command until it ends.
ended_t run_shell(const std::string &command);

// Whether a faxtrayd is registered and its port takes connections.
bool daemon_answers();

// Runs in the foreground on the site's files, with `options` besides, from construction, which waits
// until it answers, to stop() or destruction, which expects it to end as it should.
class running_daemon {
public:
    explicit running_daemon(const site &at, const std::vector<std::string> &options = {});
    ~running_daemon();
    running_daemon(const running_daemon &) = delete;
    running_daemon &operator=(const running_daemon &) = delete;

    pid_t pid() const { return pid_; }
    std::string log() const;  // what it has logged so far
    void signal(int sig) const;
    int stop(int sig = 15);  // its exit status, as in ended_t

    long resident_kb() const;
    bool is_idle() const;  // waits until it uses no processor time

private:
    const site &site_;
    pid_t pid_;
};

}  // namespace faxtray
