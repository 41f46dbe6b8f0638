// Runs the site's command once for each entry. The command may fail, die or read nothing: all that costs is a
// trace line and the time it runs.
#include "log/log_callback.h"

#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "util/child_process.h"
#include "util/empty_format.h"
#include "util/trace.h"

namespace faxtray {

static constexpr int log_types = 3;

// Returns 1 if the command succeeded; otherwise 0, with the reason in the trace.
static int check_status(const std::string &command_line, int status)
{
    if (status < 0)
        trprintf("run_log_callbacks: pclose: %s.\n", strerror(errno));
    else if (WIFSIGNALED(status))
        trprintf("run_log_callbacks: \"%s\" terminated abnormally.\n", command_line.c_str());
    else if (WEXITSTATUS(status) != 0)
        trprintf("run_log_callbacks: \"%s\" exited with code %d\n", command_line.c_str(),
                 WEXITSTATUS(status));
    return status == 0;
}

int run_log_callbacks(const char *command, int log_type, const char *text)
{
    if (log_type < 0 || log_type >= log_types) {
        trprintf("run_log_callbacks: Invalid log_type: %d.\n", log_type);
        return 0;
    }
    const std::string command_line = std::string(command) + ' ' + std::to_string(log_type);
    // Kept: the text is taken for a format; commands in use expect "%%" to arrive as "%".
    const std::string printed = print_empty_format(text);
    FILE *pipe = child_popen(command_line.c_str(), "w");
    if (!pipe) {
        trprintf("run_log_callbacks: popen: %s.\n", strerror(errno));
        return 0;
    }
    // A failed write is no failure of ours: a command need not read, and its exit status says whether it
    // worked.
    fwrite(printed.data(), 1, printed.size(), pipe);
    return check_status(command_line, child_pclose(pipe));
}

}  // namespace faxtray
