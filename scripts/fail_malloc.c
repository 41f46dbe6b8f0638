// A library to be preloaded into faxtrayd: makes an allocation of the daemon, or of the child that carries out a
// delivery, fail when fault-test.sh wants it, and counts what the daemon has allocated.
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

enum { NOBODY, DAEMON, CHILD };

// The file that the environment's FAIL_MALLOC names.
static struct {
    int32_t whose;  // allocations may fail
    int32_t left;   // of them until one does, which makes it 0
    int32_t live;   // allocations of the daemon
} *control;
static pid_t daemon_pid;

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t n, size_t size);
void *__libc_realloc(void *p, size_t size);
void __libc_free(void *p);

__attribute__((constructor)) static void begin(void)
{
    const char *path = getenv("FAIL_MALLOC");
    if (!path || strcmp(program_invocation_short_name, "faxtrayd") != 0)
        return;
    int fd = open(path, O_RDWR | O_CLOEXEC);
    void *map = fd < 0 ? MAP_FAILED : mmap(NULL, sizeof *control, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (fd >= 0)
        close(fd);
    daemon_pid = getpid();
    control = map == MAP_FAILED ? NULL : map;
}

static int fails(void)
{
    if (!control || control->whose == NOBODY || control->whose != (getpid() == daemon_pid ? DAEMON : CHILD) ||
        --control->left != 0)
        return 0;
    errno = ENOMEM;
    return 1;
}

static void *counted(void *p, int change)
{
    if (control && p && getpid() == daemon_pid)
        control->live += change;
    return p;
}

void *malloc(size_t size)
{
    return fails() ? NULL : counted(__libc_malloc(size), 1);
}

void *calloc(size_t n, size_t size)
{
    return fails() ? NULL : counted(__libc_calloc(n, size), 1);
}

void *realloc(void *p, size_t size)
{
    if (fails())
        return NULL;
    void *moved = __libc_realloc(p, size);
    return p ? moved : counted(moved, 1);
}

void free(void *p)
{
    __libc_free(counted(p, -1));
}
