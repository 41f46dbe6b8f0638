// faxregd: a small registry daemon for hosts without the fax system's own: start-up and end.
//
// Exits with status 10 if it cannot start. It goes into the background only once it serves, so that whatever
// goes wrong before is reported on the caller's standard error.
#include <fcntl.h>
#include <getopt.h>
#include <rpc/rpc.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "companion/registry_procedures.h"
#include "companion/registry_tables.h"
#include "registry/regd_requests.h"
#include "rpc/listen_address.h"
#include "rpc/registration.h"
#include "rpc/rpc_service.h"
#include "rpc/trusted_client.h"
#include "util/child_process.h"
#include "util/settings.h"
#include "util/standard_descriptors.h"
#include "util/standard_options.h"

namespace faxtray {

static constexpr int start_up_failure = 10;  // exit status
static constexpr u_long registry = REGD_PROG_BASE + 1;

static int signals = -1;  // signalfd of the terminating ones

static int usage(FILE *stream, int status)
{
    fputs("usage: faxregd [-fh] [-M modems] [-U users]\n"
          "    -M modems     Specify MODEMS.info file.\n"
          "    -U users      Specify USER_LIST.info file.\n"
          "    -f            Run in foreground.\n"
          "    -h, --help    Display this message and exit.\n"
          "    --version     Print the version and exit.\n",
          stream);
    return status;
}

static bool fail(const char *what)
{
    fprintf(stderr, "%s: %s: %s\n", Program, what, strerror(errno));
    return false;
}

// The site's own registry takes precedence: registering would take its place at the port mapper. Anybody
// else's only poses as one, and root replaces it; for another user the port mapper will refuse to do so.
static bool is_only_registry()
{
    struct utsname host;
    if (uname(&host) < 0)
        return fail("Can't determine local host name");
    const deadline_t deadline = deadline_after({5, 0});
    std::string stranger;
    const client_ptr client(trusted_clnt_create(registry, REGD_VERS, {5, 0}, &stranger));
    if (!stranger.empty() && geteuid() == 0)
        fprintf(stderr, "%s: Replacing a registry that is neither root's nor ours: %s\n", Program,
                stranger.c_str());
    if (!client || !rpc_answers(client.get(), time_left(deadline)))
        return true;
    fprintf(stderr, "%s: A registry daemon is already running on %s\n", Program, host.nodename);
    return false;
}

// Terminating signals arrive on a descriptor that the service loop watches, so that none interrupts a reply.
static bool watch_signals()
{
    for (const int ignored : {SIGPIPE, SIGHUP})
        signal(ignored, SIG_IGN);
    sigset_t terminating;
    sigemptyset(&terminating);
    for (const int sig : {SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2})
        sigaddset(&terminating, sig);
    signals = signalfd(-1, &terminating, SFD_CLOEXEC | SFD_NONBLOCK);
    if (signals < 0 || sigprocmask(SIG_BLOCK, &terminating, nullptr) != 0)
        return fail("Can't watch signals");
    return true;
}

static bool no_signal_known()
{
    return false;  // the loop finds signalfd readable instead
}

static bool never()
{
    return false;  // end_on_signal() does not return
}

static void end_on_signal()
{
    signalfd_siginfo info;
    if (read(signals, &info, sizeof info) != sizeof info)
        return;
    // Otherwise the port mapper would send clients to a port that is closed or someone else's.
    registration_remove();
    fprintf(stderr, "%s: Interrupted: signal [%d]\n", Program, static_cast<int>(info.ssi_signo));
    exit(0);
}

static bool go_into_background()
{
    fflush(nullptr);  // or the child would print it a second time
    const pid_t child = fork();
    if (child < 0)
        return fail("fork()");
    if (child > 0)
        _exit(0);
    if (setsid() < 0)
        return fail("setsid()");
    // Standard error is kept unless it is a terminal: damaged lists are reported there.
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fd != STDERR_FILENO || isatty(fd))
            dup2(nowhere, fd);
    close(nowhere);
    return true;
}

// Starts up and serves; returns only if something failed, with a message.
static void run(bool foreground)
{
    close_descriptors_from(STDERR_FILENO + 1);
    if (!is_only_registry() || !watch_signals())
        return;
    const rpc_service_t service = {
        .program = registry,
        .version = REGD_VERS,
        .dispatch = registry_1,
        .largest_reply = 64 * 1024,  // one record of the lists takes at most a few KiB
        .largest_request = max_registry_request,
        .address = loopback_address(),  // the lists are private to this host
        .wake_fd = signals,
        .wake_pending = no_signal_known,
        .wake = end_on_signal,
        .ending = never,
        .unfinished = never,
    };
    if (!rpc_service_create(service)) {
        fail("Can't create service");
        return;
    }
    // Registered already: when the starting process ends, the registry answers.
    if (!foreground && !go_into_background())
        return;
    rpc_service_run(service);
    fprintf(stderr, "%s: Service exited\n", Program);
}

// The whole program; returns the exit status.
static int faxregd(int argc, char *argv[])
{
    if (argc > 0)
        Program = argv[0];
    if (!hold_standard_descriptors())
        return start_up_failure;
    bool foreground = false;
    const char *user_list = nullptr, *modem_list = nullptr;
    int letter;
    while ((letter = getopt_long(argc, argv, "M:U:fh", help_and_version, nullptr)) != -1) {
        switch (letter) {
        case 'M':
            modem_list = optarg;
            break;
        case 'U':
            user_list = optarg;
            break;
        case 'f':
            foreground = true;
            break;
        case 'h':
            return usage(stdout, 0);
        case 'V':
            puts(version_text("faxregd").c_str());
            return 0;
        default:
            return usage(stderr, start_up_failure);
        }
    }
    if (optind < argc)
        return usage(stderr, start_up_failure);
    set_registry_files(user_list, modem_list);
    run(foreground);
    return start_up_failure;
}

}  // namespace faxtray

int main(int argc, char *argv[])
{
    return faxtray::faxregd(argc, argv);
}
