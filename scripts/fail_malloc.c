// Makes an allocation of a program fail when fault-test.sh wants it, and counts what the program has allocated. A library
// to be preloaded or, under the address sanitizer, a part of the program.
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#ifdef FAIL_UNDER_SANITIZER
#define REAL(name) __interceptor_##name
#else
#define REAL(name) __libc_##name
#endif

enum { NOBODY, PROGRAM, CHILD };

// The file that the environment's FAIL_MALLOC names.
static struct {
    int32_t whose;  // allocations may fail
    int32_t left;   // of them until one does, which makes it 0
    int32_t live;   // allocations of the program
} *control;
static pid_t program_pid;

void *REAL(malloc)(size_t size);
void *REAL(calloc)(size_t n, size_t size);
void *REAL(realloc)(void *p, size_t size);
void REAL(free)(void *p);

__attribute__((constructor)) static void begin(void)
{
    const char *path = getenv("FAIL_MALLOC"), *name = program_invocation_short_name;
    if (!path || (strcmp(name, "faxtrayd") != 0 && strcmp(name, "faxconv") != 0))
        return;
    int fd = open(path, O_RDWR | O_CLOEXEC);
    void *map = fd < 0 ? MAP_FAILED : mmap(NULL, sizeof *control, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (fd >= 0)
        close(fd);
    program_pid = getpid();
    control = map == MAP_FAILED ? NULL : map;
}

static int fails(void)
{
    if (!control || control->whose == NOBODY || control->whose != (getpid() == program_pid ? PROGRAM : CHILD) ||
        --control->left != 0)
        return 0;
    errno = ENOMEM;
    return 1;
}

static void *counted(void *p, int change)
{
    if (control && p && getpid() == program_pid)
        control->live += change;
    return p;
}

void *malloc(size_t size)
{
    return fails() ? NULL : counted(REAL(malloc)(size), 1);
}

void *calloc(size_t n, size_t size)
{
    return fails() ? NULL : counted(REAL(calloc)(n, size), 1);
}

void *realloc(void *p, size_t size)
{
    if (fails())
        return NULL;
    void *moved = REAL(realloc)(p, size);
    return p ? moved : counted(moved, 1);
}

void free(void *p)
{
    REAL(free)(counted(p, -1));
}

#ifdef FAIL_UNDER_SANITIZER
// The sanitizer's own does not call malloc().
char *strdup(const char *text)
{
    const size_t size = strlen(text) + 1;
    char *copy = malloc(size);
    return copy ? memcpy(copy, text, size) : NULL;
}
#endif
