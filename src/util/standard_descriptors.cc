// open() returns the lowest free number: once the lower ones are taken, exactly the missing one.
#include "util/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <initializer_list>

namespace faxtray {

bool hold_standard_descriptors()
{
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // The wrong way round: what nobody supplies cannot be read, and what nobody takes cannot be written.
        const int mode = fd == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", mode) != fd) {
            perror("/dev/null");
            return false;
        }
    }
    return true;
}

}  // namespace faxtray
