// io: reading and writing whole amounts. The system may move fewer bytes at a time than asked for, or be
// interrupted by a signal; these carry on until all is done. Both are safe in a signal handler.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace faxtray {

// Reads `n` bytes, fewer only where the file ends. Returns how many were read, or -1 with errno; how many
// were read before the failure is then not known.
ssize_t read_full(int fd, void *bytes, size_t n);

// Writes all `n` bytes at the descriptor's position. False with errno; how many were written before the
// failure is then not known.
bool write_full(int fd, const void *bytes, size_t n);

// The same at `offset`, leaving the descriptor's position alone.
bool write_full_at(int fd, const void *bytes, size_t n, off_t offset);

// Copies what is left to read of one file to another. False with errno.
bool copy_rest(int from, int to);

}  // namespace faxtray
