// faxtrayd: start-up, from the command line to the service loop.
//
// Ends with status 10 when it cannot start, 1 without a network layer. Messages go to standard error,
// which becomes the log file on the way.
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "daemon/inbox_root.h"
#include "daemon/options.h"
#include "daemon/service_loop.h"
#include "daemon/signals.h"
#include "deliver/admin_notice.h"
#include "disk/work_note.h"
#include "inbox/inbox_lists.h"
#include "log/exception_log.h"
#include "protocol/records.h"
#include "registry/regd_client.h"
#include "rpc/timed_client.h"
#include "util/child_process.h"
#include "util/owned.h"
#include "util/settings.h"
#include "util/trace.h"
#include "util/version_id.h"

namespace faxtray {

static constexpr int Start_up_failure = 10;

// ONC RPC needs nothing raised or taken down on this platform.
static bool raise_rpc()
{
    return true;
}

static void down_rpc() {}

// Runs at exit. The port mapper's entry stays: the next start replaces it.
static void cleanup()
{
    dump_list(&users);
    dump_list(&incoming);
    down_rpc();
}

static int print_revision()
{
    char text[256];
    if (rev_revinfo(SCCS_ID, text, sizeof text))
        fprintf(stderr, "%-20s %s\n", "Faxtrayd", text);
    return 0;
}

static bool name_log_file(options_t &options)
{
    if (options.log_file)
        return true;
    char path[2048];
    snprintf(path, sizeof path, "%s/trayd_log", dvWork_dir);
    options.log_file.reset(strdup(path));
    if (!options.log_file)
        fprintf(stderr, "%s: strdup(%s): %s\n", Program, path, strerror(errno));
    return static_cast<bool>(options.log_file);
}

static void close_listed_descriptors()
{
    const dir_ptr dir(opendir("/proc/self/fd"));
    if (!dir)
        return;
    while (const dirent *entry = readdir(dir.get())) {
        const int fd = static_cast<int>(strtol(entry->d_name, nullptr, 10));
        if (entry->d_name[0] != '.' && fd != STDERR_FILENO && fd != dirfd(dir.get()))
            close(fd);
    }
}

// Closes every descriptor but standard error, on which start-up still reports. The limit may stand at
// 2^30, so they are not closed one by one. Children get the limit as it was; our own goes down to what
// select() can hold.
static bool close_descriptors()
{
    const long n = sysconf(_SC_OPEN_MAX);
    if (n <= 2) {
        fprintf(stderr, "%s: Not enough file descriptors: [%d]\n", Program, static_cast<int>(n));
        return false;
    }
    if (close_range(0, 1, 0) != 0 || close_range(3, ~0U, 0) != 0)
        close_listed_descriptors();

    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        child_set_limit(limit);
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, FD_SETSIZE);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    return true;
}

// Standard output becomes the log file, standard input empty: no socket may ever get number 0.
static bool open_log(const char *path)
{
    [[maybe_unused]] const int empty_input = open("/dev/null", O_RDWR);
    const int log = open(path, O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (log < 0) {
        fprintf(stderr, "%s: cv_open(%s): %s\n", Program, path, strerror(errno));
        return false;
    }
    if (log != STDOUT_FILENO)
        dup2(log, STDOUT_FILENO);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    return true;
}

static void start_tracing()
{
    if (!tr_init(Exec_dir, dvWork_dir))
        fprintf(stderr, "%s: Warning: Problem initializing trace file.\n", Program);
    else if (!open_trace_file("faxtrayd"))
        fprintf(stderr, "%s: Warning: Problem opening trace file.\n", Program);
}

static void start_exception_log()
{
    char path[sizeof dvWork_dir + sizeof "/exception_log"];
    snprintf(path, sizeof path, "%s/%s", dvWork_dir, "exception_log");
    elog_init("faxtrayd", path, 1);
    admin_notice_init();
}

// The host's own name may not resolve, or not to an IPv4 address; then "localhost" tells.
static bool is_only_instance()
{
    struct utsname host;
    if (uname(&host) < 0) {
        fprintf(stderr, "%s: Can't determine local host name: %s\n", Program, strerror(errno));
        return false;
    }
    if (!rpc_answers_on(host.nodename, IN_PROG, IN_VERS) && !rpc_answers_on("localhost", IN_PROG, IN_VERS))
        return true;
    fprintf(stderr, "%s: The inbox server is already running on %s\n", Program, host.nodename);
    return false;
}

static bool go_into_background()
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        fprintf(stderr, "%s: fork(): %s\n", Program, strerror(errno));
        return false;
    }
    if (child > 0)
        _exit(0);
    return true;
}

static bool leave_terminal()
{
    if (setsid() >= 0)
        return true;
    fprintf(stderr, "%s: Can't release controlling terminal: %s\n", Program, strerror(errno));
    return false;
}

static bool start_service()
{
    if (create_service())
        return true;
    fprintf(stderr, "%s: Can't create service: %s\n", Program, strerror(errno));
    return false;
}

static constexpr int Log_and_stderr = ELOG_FILE | ELOG_STDERR;

static void note_list_problem()
{
    elog_writef(SCCS_ID, __FILE__, __LINE__, ELOG_WARNING, Log_and_stderr, "Problem creating inbox lists.\n");
}

// Failures are noted only; later requests try again.
static void load_lists()
{
    if (!update_lists(&users, &incoming, &User_list, user_info, modem_info))
        note_list_problem();
    const int root = mk_inbox_root(User_list.metausers.head());
    if (root == ROOT_MISSING)
        elog_writef(SCCS_ID, __FILE__, __LINE__, ELOG_WARNING, Log_and_stderr,
                    "Problem creating faxtray root.\n");
    // A first start makes the delivery root after the lists, too late for the inboxes below it.
    if (root == ROOT_MADE && !reload_lists(&users, &incoming, &User_list, user_info, modem_info))
        note_list_problem();
    regd_forget_timeout();
}

// Start-up after the command line, in an order that matters: standard error stays the caller's until
// all that may go wrong before the service is made has been told. Returns only when it failed or the
// service has ended.
static void run(options_t &options)
{
    if (!name_log_file(options) || !close_descriptors() || !open_log(options.log_file.get()))
        return;
    start_tracing();
    start_exception_log();
    if (!is_only_instance())
        return;

    if (!options.foreground && !go_into_background())
        return;
    if (!signals_init(Debug)) {
        fprintf(stderr, "%s: Can't install signal handlers: %s\n", Program, strerror(errno));
        return;
    }
    if (!options.foreground && !leave_terminal())
        return;
    dup2(STDOUT_FILENO, STDERR_FILENO);

    note_recover();  // no other faxtrayd runs whose note this could be
    if (!start_service())
        return;
    if (atexit(cleanup) != 0)
        fprintf(stderr, "%s: atexit(cleanup): %s\n", Program, strerror(errno));
    fprintf(stderr, "%s: Trayd version [%s] started\n", Program, SCCS_ID);
    trprintf("%s: Trayd version [%s] started\n", Program, SCCS_ID);
    load_lists();

    cv_svc_run();
    fprintf(stderr, "%s: Service exited\n", Program);
}

// The whole program; the exit status.
static int faxtrayd(int argc, char *argv[])
{
    if (argc > 0)
        Program = argv[0];
    if (argc == 2 && strcmp(argv[1], "-rev") == 0)
        return print_revision();
    options_t options = parse_options(argc, argv);
    if (options.exit_status >= 0)
        return options.exit_status;
    if (!raise_rpc()) {
        fprintf(stderr, "%s: Failed to initialize network.\n", Program);
        return 1;
    }
    run(options);
    down_rpc();
    return Start_up_failure;
}

}  // namespace faxtray

int main(int argc, char *argv[])
{
    return faxtray::faxtrayd(argc, argv);
}
