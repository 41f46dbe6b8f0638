#include "util/process_tag.h"

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "util/crc.h"
#include "util/io.h"
#include "util/owned.h"

namespace faxtray {

const char *host_name()
{
    static struct utsname host;
    if (!*host.nodename && uname(&host) == 0)
        std::replace(host.nodename, host.nodename + strlen(host.nodename), '/', '_');
    return host.nodename;
}

const char *boot_id()
{
    static char id[37];  // a UUID
    if (!*id) {
        const unique_fd fd(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
        if (!fd || read_full(fd.get(), id, sizeof id - 1) != sizeof id - 1)
            snprintf(id, sizeof id, "-");
    }
    return id;
}

const char *process_tag()
{
    static char tag[32];
    const char *host = host_name(), *boot = boot_id();
    const uint32_t hash = crc_rev_update(boot, strlen(boot), crc_val(host, strlen(host)), crc_table.data());
    snprintf(tag, sizeof tag, "%d-%08x", static_cast<int>(getpid()), hash);
    return tag;
}

}  // namespace faxtray
