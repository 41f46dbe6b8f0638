// The host is made in two steps: the caller leaves its namespaces and forks, which makes the child
// process 1 of the new host; that one mounts and starts everything, runs the body in a child of its
// own, reaps orphans and ends with the body, whereupon the kernel ends whatever still runs.
#include "support/private_host.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "support/temp_dir.h"
#include "support/wait_for.h"
#include "support/wire.h"

namespace faxtray {

static constexpr char sendmail[] = "#!/bin/sh\n"
                                   "n=$(ls /run/mail | wc -l)\n"
                                   "{ echo \"args: $*\"; cat; } >\"/run/mail/$(printf %05d \"$n\")\"\n";

static pid_t port_mapper = -1;

// Ends the process unless `good`: without permission there is no private host, anything else is a fault.
static void require(bool good, const char *what)
{
    if (good)
        return;
    bool forbidden = errno == EPERM || errno == EACCES || errno == ENOSYS;
    fprintf(stderr, "private host: %s: %s\n", what, strerror(errno));
    _exit(forbidden ? NO_PRIVATE_HOST : 1);
}

static void write_file(const char *path, const char *text, mode_t mode)
{
    std::ofstream out(path);
    out << text;
    out.close();
    require(out.good() && chmod(path, mode) == 0, path);
}

// What is mounted next must not reach the machine's own view of the file system. In a chroot that is no
// mount point the root cannot be made private, so it is asked of the first mount, /run.
static void mount_run()
{
    bool is_private = mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    require(mount("proc", "/proc", "proc", 0, nullptr) == 0, "mount /proc");
    require(mount("tmpfs", "/run", "tmpfs", 0, "mode=755") == 0, "mount /run");

    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; !is_private && std::getline(mounts, line);)
        if (line.find(" /run ") != std::string::npos && line.find(" shared:") != std::string::npos) {
            umount("/run");
            umount("/proc");
            errno = EPERM;
            require(false, "this chroot shares its mounts with the machine");
        }
}

// Makes `dir` writable for this host alone.
static void overlay(const std::string &dir, const std::string &scratch)
{
    std::filesystem::create_directories(scratch + "/upper");
    std::filesystem::create_directories(scratch + "/work");
    std::string options = "lowerdir=" + dir + ",upperdir=" + scratch + "/upper,workdir=" + scratch + "/work";
    require(mount("overlay", dir.c_str(), "overlay", 0, options.c_str()) == 0, ("overlay " + dir).c_str());
}

static void raise_loopback()
{
    unique_fd sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    struct ifreq lo = {};
    snprintf(lo.ifr_name, sizeof lo.ifr_name, "lo");
    lo.ifr_flags = IFF_UP | IFF_RUNNING;
    require(sock && ioctl(sock.get(), SIOCSIFFLAGS, &lo) == 0, "loopback");
}

void start_port_mapper()
{
    port_mapper = fork();
    require(port_mapper >= 0, "fork");
    if (port_mapper == 0) {
        execl("/sbin/rpcbind", "rpcbind", "-w", "-f", nullptr);
        perror("rpcbind");
        _exit(1);
    }
    require(wait_for([] { return static_cast<bool>(connect_to(111)); }), "rpcbind does not answer");
}

void stop_port_mapper()
{
    kill(port_mapper, SIGKILL);
    waitpid(port_mapper, nullptr, 0);
    port_mapper = -1;
}

std::vector<std::string> take_mail()
{
    std::vector<std::string> mails;
    for (char path[32];; unlink(path)) {
        snprintf(path, sizeof path, "/run/mail/%05zu", mails.size());
        if (access(path, F_OK) != 0)
            return mails;
        mails.push_back(read_file(path));
    }
}

// The name may be the machine's link to its agent, which must stay as it is: it is never written through.
void replace_mail_agent(const std::string &script)
{
    unlink("/usr/lib/sendmail");
    write_file("/usr/lib/sendmail", script.c_str(), 0755);
}

void restore_mail_agent()
{
    replace_mail_agent(sendmail);
}

static void settle_in()
{
    mount_run();
    overlay("/etc", "/run/etc");
    overlay("/usr/lib", "/run/usr-lib");
    for (const char *dir : {"/run/rpcbind", "/run/mail"})
        require(mkdir(dir, 0755) == 0, dir);
    unlink("/etc/hosts");  // may be a link
    write_file("/etc/hosts", "127.0.0.1 localhost\n", 0644);
    write_file("/etc/nsswitch.conf", "hosts: files\n", 0644);
    restore_mail_agent();
    require(sethostname("localhost", 9) == 0, "host name");
    raise_loopback();
}

// What `child` ends with, while every process of `group` (-1: any) is awaited on the way.
static int await(pid_t child, pid_t group)
{
    int status = 0;
    for (pid_t pid = 0; pid != child;)
        if (pid = waitpid(group, &status, 0); pid < 0)
            return 1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

// Process 1: awaits the body, and every orphan on the way.
[[noreturn]] static void live_as_init(const std::function<int()> &body)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    settle_in();
    pid_t child = fork();
    require(child >= 0, "fork");
    if (child == 0) {
        start_port_mapper();
        exit(body());  // not _exit: the leak checker has its say
    }
    _exit(await(child, -1));
}

int run_on_private_host(const std::function<int()> &body)
{
    if (geteuid() != 0) {
        fprintf(stderr, "private host: only root can make one\n");
        return NO_PRIVATE_HOST;
    }
    fflush(nullptr);
    pid_t caller = fork();  // so that the caller itself keeps its namespaces
    if (caller == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        require(unshare(CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWUTS | CLONE_NEWPID | CLONE_NEWIPC) == 0,
                "unshare");
        pid_t init = fork();
        require(init >= 0, "fork");
        if (init == 0)
            live_as_init(body);
        _exit(await(init, init));
    }
    require(caller > 0, "fork");
    return await(caller, caller);
}

}  // namespace faxtray
