// faxtrayd: start-up, from the command line to the service loop.
//
// Exits with status 10 when it cannot start. Messages go to standard error, which on the way is replaced by
// the log file.
#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "daemon/delivery_queue.h"
#include "daemon/dispatcher.h"
#include "daemon/inbox_root.h"
#include "daemon/instance_lock.h"
#include "daemon/notice_queue.h"
#include "daemon/options.h"
#include "daemon/signals.h"
#include "deliver/admin_notice.h"
#include "disk/work_note.h"
#include "inbox/inbox_lists.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "protocol/records.h"
#include "registry/regd_client.h"
#include "rpc/listen_address.h"
#include "rpc/rpc_service.h"
#include "rpc/timed_client.h"
#include "util/child_process.h"
#include "util/settings.h"
#include "util/standard_descriptors.h"
#include "util/text.h"
#include "util/time_limit.h"
#include "util/trace.h"
#include "util/version_id.h"

namespace faxtray {

static constexpr int start_up_failure = 10;  // exit status
static constexpr rlim_t most_descriptors = 20000;

// Runs at exit. The port mapper's entry stays: the next start replaces it.
static void cleanup()
{
    dump_list(&users);
    dump_list(&incoming);
}

// Kept: exit status 0 even if the revision cannot be read; installers ask for the text only.
static int print_revision()
{
    char text[256];
    if (rev_revinfo(SCCS_ID, text, sizeof text))
        fprintf(stderr, "%-20s %s\n", "Faxtrayd", text);
    return 0;
}

static sockaddr_in listen_address = any_address();

// What the site has set; false, with a message, if it means no address.
static bool choose_listen_address()
{
    const char *text = getenv("FAXTRAY_LISTEN");
    if (!text || parse_listen_address(text, &listen_address))
        return true;
    fprintf(stderr, "%s: FAXTRAY_LISTEN [%s] is not [ADDRESS][:PORT], with an IPv4 address in numbers\n",
            Program, text);
    return false;
}

// Makes sure that options.log_file has a name.
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

// Closes every descriptor but standard error, on which start-up still reports.
static bool close_descriptors()
{
    const long n = sysconf(_SC_OPEN_MAX);
    if (n <= 2) {
        fprintf(stderr, "%s: Not enough file descriptors: [%d]\n", Program, static_cast<int>(n));
        return false;
    }
    close(STDIN_FILENO);
    close(STDOUT_FILENO);
    close_descriptors_from(STDERR_FILENO + 1);  // not one by one: the limit may be 2^30

    // Children get the limit as it was; our own is raised, since each connection takes a descriptor.
    struct rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        child_set_limit(limit);
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, most_descriptors);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    return true;
}

// Makes the log file standard output, and /dev/null standard input, so that no socket ever gets number 0,
// which children would read from.
static bool open_log(const char *path)
{
    [[maybe_unused]] const int empty_input = open("/dev/null", O_RDWR);
    const int log = open(path, O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (log < 0) {
        fprintf(stderr, "%s: cv_open(%s): %s\n", Program, path, strerror(errno));
        return false;
    }
    // Usually open() has returned 1 already, since 0 and 1 were closed.
    if (log != STDOUT_FILENO)
        dup2(log, STDOUT_FILENO);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    return true;
}

// The limit of each command that a delivery or a notice runs.
static void limit_commands()
{
    const char *text = getenv("FAXTRAY_COMMAND_SECONDS");
    unsigned seconds = default_command_seconds;
    if (!is_empty(text)) {
        const char *end = text + strlen(text);
        const auto [parsed, error] = std::from_chars(text, end, seconds);
        if (parsed != end || error != std::errc())
            fprintf(stderr, "%s: Bad FAXTRAY_COMMAND_SECONDS: [%s]: %u is used\n", Program, text,
                    seconds = default_command_seconds);
    }
    set_command_seconds(seconds);
}

// The daemon runs without a trace if it cannot have one.
static void start_tracing()
{
    if (!tr_init(Exec_dir, dvWork_dir))
        fprintf(stderr, "%s: Warning: Problem initializing trace file.\n", Program);
    else if (!open_trace_file("faxtrayd"))
        fprintf(stderr, "%s: Warning: Problem opening trace file.\n", Program);
}

// From here on entries reach the file, and the administrator.
static void start_exception_log()
{
    char path[sizeof dvWork_dir + sizeof "/exception_log"];
    snprintf(path, sizeof path, "%s/%s", dvWork_dir, "exception_log");
    elog_init("faxtrayd", path, 1);
    admin_notice_init();
}

static struct utsname host;

// False, for the caller to return.
static bool report_running()
{
    fprintf(stderr, "%s: The inbox server is already running on %s\n", Program, host.nodename);
    return false;
}

// Whether any faxtrayd answers on this host within five seconds. The host's own name may not resolve, or not
// to an IPv4 address, or only after a long time: so "localhost" is asked first, then the one address where
// another start of this site's listens, and all by a child that the alarm ends. Without a child nobody is
// asked; the lock is looked at all the same.
static bool another_answers()
{
    static constexpr unsigned limit = 5;
    char listening[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &listen_address.sin_addr, listening, sizeof listening);
    fflush(nullptr);
    signal(SIGCHLD, SIG_DFL);  // ignored, it would leave no child to await
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGALRM, SIG_DFL);
        alarm(limit);
        const auto answers_on = [](const char *name) {
            return rpc_answers_on(name, IN_PROG, IN_VERS, {limit, 0});
        };
        const bool found = answers_on("localhost") ||
                           (listen_address.sin_addr.s_addr != INADDR_ANY && answers_on(listening)) ||
                           answers_on(host.nodename);
        _exit(found ? 0 : 1);
    }
    int status = -1;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 0;
}

// False, with a message, if a faxtrayd runs on this host.
static bool check_only_instance()
{
    if (uname(&host) < 0) {
        fprintf(stderr, "%s: Can't determine local host name: %s\n", Program, strerror(errno));
        return false;
    }
    if (instance_lock_is_held(host.nodename) || another_answers())
        return report_running();
    return true;
}

// False, with the same message, if another start was quicker: it may have begun to serve since that check.
static bool remain_only_instance()
{
    return instance_lock_take() || report_running();
}

// Returns in the child only.
static bool go_into_background()
{
    fflush(nullptr);  // or parent and child would both write what is buffered
    const pid_t child = fork();
    if (child < 0) {
        fprintf(stderr, "%s: fork(): %s\n", Program, strerror(errno));
        return false;
    }
    if (child > 0)
        _exit(0);
    return true;
}

// A session of its own: the daemon outlives the terminal that started it.
static bool leave_terminal()
{
    if (setsid() >= 0)
        return true;
    fprintf(stderr, "%s: Can't release controlling terminal: %s\n", Program, strerror(errno));
    return false;
}

// At the end: whether the children that are running may have the time to end by themselves.
static bool waits_for_children()
{
    return (delivery_is_running() || notices_are_left()) && !signals_hurried();
}

// The inbox program as a service. Its largest request leaves room for long names: these are answered with an
// error, not with a closed connection.
static rpc_service_t inbox_service()
{
    return {.program = IN_PROG,
            .version = IN_VERS,
            .dispatch = in_prog_1,
            .largest_reply = MAX_READ_SIZE,
            .largest_request = 256 * 1024,
            .address = listen_address,
            .wake_fd = signals_fd(),
            .wake_pending = signals_pending,
            .wake = signals_handle,
            .ending = signals_ending,
            .unfinished = waits_for_children};
}

static bool start_service()
{
    if (rpc_service_create(inbox_service()))
        return true;
    fprintf(stderr, "%s: Can't create service: %s\n", Program, strerror(errno));
    return false;
}

// Serves until a terminating signal. Returns only when waiting itself has failed.
static void cv_svc_run()
{
    const int error = rpc_service_run(inbox_service());
    delivery_kill();
    notices_kill();
    if (error == 0)
        exit(0);  // runs cleanup()
    fprintf(stderr, "cv_svc_run: select: %s\n", strerror(error));
}

// Failures are only logged: the daemon serves as well as it can, and every request tries again.
static void load_lists()
{
    bool has_root = false;
    if (!load_first_lists(&has_root))
        log_only({ELOG_WARNING, elog_file_and_stderr}, "Problem creating inbox lists.\n");
    if (!has_root)
        log_only({ELOG_WARNING, elog_file_and_stderr}, "Problem creating faxtray root.\n");
    // What was logged may have asked the registry; the first request asks it again.
    regd_forget_timeout();
}

// Start-up after the command line. The order matters: standard error stays the caller's until everything that
// may fail before the service exists has been reported. Returns only when start-up failed or the service has
// ended.
static void run(options_t &options)
{
    if (!choose_listen_address() || !name_log_file(options) || !close_descriptors() ||
        !open_log(options.log_file.get()))
        return;
    start_tracing();
    start_exception_log();
    limit_commands();
    tzset();  // or each child would read the time zone's file
    if (!check_only_instance())
        return;

    // The handlers come first: until setsid() the terminal may send SIGHUP.
    if (!options.foreground && !go_into_background())
        return;
    if (!signals_init(Debug)) {
        fprintf(stderr, "%s: Can't install signal handlers: %s\n", Program, strerror(errno));
        return;
    }
    if (!options.foreground && !leave_terminal())
        return;
    dup2(STDOUT_FILENO, STDERR_FILENO);

    if (!remain_only_instance())
        return;
    note_recover();  // safe: no other faxtrayd writes notes into this directory
    if (!start_service())
        return;
    if (atexit(cleanup) != 0)
        fprintf(stderr, "%s: atexit(cleanup): %s\n", Program, strerror(errno));
    fprintf(stderr, "%s: Trayd version [%s] started\n", Program, SCCS_ID);
    trprintf("%s: Trayd version [%s] started\n", Program, SCCS_ID);
    notice_queue_init();
    load_lists();

    cv_svc_run();
    fprintf(stderr, "%s: Service exited\n", Program);
}

// The whole program; returns the exit status.
static int faxtrayd(int argc, char *argv[])
{
    if (argc > 0)
        Program = argv[0];
    if (!hold_standard_descriptors())
        return start_up_failure;
    if (argc == 2 && strcmp(argv[1], "-rev") == 0)
        return print_revision();
    options_t options = parse_options(argc, argv);
    if (options.exit_status >= 0)
        return options.exit_status;
    run(options);
    return start_up_failure;
}

}  // namespace faxtray

int main(int argc, char *argv[])
{
    return faxtray::faxtrayd(argc, argv);
}
