#include "disk/unnamed_file.h"

#include <fcntl.h>

#include <string>

#include "util/ending_signals.h"
#include "util/paths.h"

namespace faxtray {

unique_fd make_unnamed_file()
{
    std::string path = temporary_directory();
    unique_fd fd(open(path.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (fd)
        return fd;
    // Some file systems make no files without names: there it has one for a moment.
    const ending_signals_held until_unnamed;
    path += "/.faxtray-XXXXXX";
    fd.reset(mkostemp(path.data(), O_CLOEXEC));
    if (fd)
        unlink(path.c_str());
    return fd;
}

}  // namespace faxtray
