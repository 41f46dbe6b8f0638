// lease: whether anybody is writing a file.
#pragma once

namespace faxtray {

// Takes a read lease on a file opened for reading, which closing `fd` drops: whoever opens the file for
// writing waits until then, 45 seconds at most. Returns 0, EBUSY if somebody has it open for writing, or
// another error number if no lease can be had: on network file systems, and for a file of another user unless
// we are root. Ignores SIGIO from then on.
int take_read_lease(int fd);

}  // namespace faxtray
