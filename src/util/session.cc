// No system call ends a session, so its processes are looked for in /proc.
#include "util/session.h"

#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "util/owned.h"

namespace faxtray {

static constexpr int most_rounds = 100;
static constexpr useconds_t round_time = 1000;  // microseconds

// Whether the process has ended, though its parent may not have awaited it yet (proc(5): "PID (NAME) STATE
// ..."; the name may hold anything).
static bool has_ended(pid_t pid)
{
    char path[64], text[512];
    snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    const file_ptr file(fopen(path, "re"));
    const char *end = file && fgets(text, sizeof text, file.get()) ? strrchr(text, ')') : nullptr;
    return !end || strncmp(end, ") Z", 3) == 0 || strncmp(end, ") X", 3) == 0;
}

// One round; true if all have ended.
static bool kill_once(pid_t session)
{
    const std::unique_ptr<DIR, deleter<closedir>> processes(opendir("/proc"));
    if (!processes)
        return true;
    bool all_ended = true;
    while (const dirent *entry = readdir(processes.get())) {
        const auto pid = static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));  // 0 for other names
        if (pid <= 0 || getsid(pid) != session || has_ended(pid))
            continue;
        kill(pid, SIGKILL);
        all_ended = false;
    }
    return all_ended;
}

void kill_session(pid_t session)
{
    for (int round = 0; round < most_rounds && !kill_once(session); round++)
        usleep(round_time);
}

}  // namespace faxtray
