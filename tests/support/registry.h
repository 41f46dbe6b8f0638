// registry: the real faxregd of this build, run in the background on a site's lists, or a false one.
#pragma once

#include <string>

#include "support/daemon.h"
#include "util/owned.h"

namespace faxtray {

class running_registry {
public:
    explicit running_registry(const site &at);  // serves when this returns
    ~running_registry();
    running_registry(const running_registry &) = delete;
    running_registry &operator=(const running_registry &) = delete;

    ended_t start() const;     // again; returns when it serves, or says why not
    void end(int sig) const;   // waits until it is gone; without effect when it does not run
    std::string said() const;  // on standard error

private:
    const site &site_;
};

// A listening socket that is registered in the registry's place for as long as this lives.
class false_registry {
public:
    false_registry();
    ~false_registry();
    unique_fd let_in() const;   // the next client, awaited
    int count_clients() const;  // of those that wait, let in and hung up on

private:
    unique_fd listener_;
};

}  // namespace faxtray
