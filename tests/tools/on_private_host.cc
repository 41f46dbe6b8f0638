// on_private_host COMMAND [ARGUMENT...]: runs a command on a private host, rpcbind and all, and ends
// with its exit status. For demonstrations and measurements that must not touch the machine.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "support/private_host.h"

static int run(char **command)
{
    pid_t pid = fork();
    if (pid == 0) {
        execvp(command[0], command);
        perror(command[0]);
        _exit(127);
    }
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) < 0) {
        perror("on_private_host");
        return 1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: on_private_host COMMAND [ARGUMENT...]\n");
        return 2;
    }
    return faxtray::run_on_private_host([argv] { return run(argv + 1); });
}
