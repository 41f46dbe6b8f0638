// fax_header: the header at the start of every fax file.
//
//   offset 0  4 bytes  magic BA DB AD 16
//          4  4 bytes  N, length of the text block, big-endian
//          8  N bytes  "name:value\n" for each attribute, then one byte 0x1D
//        8+N           page data
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "util/owned.h"

namespace faxtray {

inline constexpr uint32_t FAX_MAGIC = 0xBADBAD16;
inline constexpr size_t max_header_text = 1024 * 1024;  // bytes; a longer text block is no header

struct fax_header_t {
    char *name;   // never empty
    char *value;  // never null
    fax_header_t *next;
};

// Reads the header of a file, or returns null with a message on standard error
// and standard output. Starts at offset 0 wherever the file is positioned, and
// leaves it at the first byte of page data. The caller frees the list.
fax_header_t *read_fax_header(int fd);

// Finds the values of `count` names in the first `n` bytes of a file, for scans that want a few values of
// many files. values[i] points into `bytes`, which are changed: a NUL is put after each value. It is null if
// there is no attribute of that name. Allocates nothing, prints nothing. False if the bytes hold no whole and
// sound header; read_fax_header_values then reports why, or reads the rest.
bool find_fax_header_values(char *bytes, size_t n, const char *const *names, const char **values,
                            size_t count);

// The same from a file, with the messages of read_fax_header: for headers that are longer than a few blocks.
// Returns the text that the values point into, or null. A header with very many attributes takes much less
// time and memory than as a list.
c_string read_fax_header_values(int fd, const char *const *names, const char **values, size_t count);

// Writes preamble and text block at offset 0, in one write; page data are not moved. Returns 1, or -1 with a
// message on both streams. Nothing is written if the list would not read back (a colon or line feed in a
// name, a line feed in a value, more than max_header_text). A null list makes a header without attributes,
// which readers refuse.
int write_fax_header(int fd, const fax_header_t *list);

// Makes a list of one attribute; a null value becomes "". Null with a message for a null or empty name or
// without memory. The caller frees it.
fax_header_t *new_fax_header(const char *name, const char *value);

// Frees the node and all that follow it; null is allowed. Always returns 1.
int free_fax_header(fax_header_t *list);

// The value of the first attribute of exactly that name, or null if there is none. It belongs to the list.
const char *get_fax_header_value(const fax_header_t *list, const char *name);

// Replaces the value of `name`, or appends the attribute. The list must not be null: start one with
// new_fax_header. Returns 1, or -1 with a message and the list as it was.
int set_fax_header_av(fax_header_t *list, const char *name, const char *value);

// The same from "name:value", split at the first colon. For
// the fax system's other programs; none here calls it.
int set_fax_header_string(fax_header_t *list, const char *pair);

// VR and DF codes (fax_params.h). For a value that is missing or cannot be decoded
// the getters return -1 with a warning on standard output; a missing compression is
// DF_MH without one. The setters return 1, or -1 with a message on standard output.
int get_vertical_resolution(const fax_header_t *list);
int set_vertical_resolution(fax_header_t *list, int code);
int get_compression_mode(const fax_header_t *list);
int set_compression_mode(fax_header_t *list, int code);

// Returns 1 if `path` is a regular file that begins with the magic; otherwise 0 with the reason in the trace.
int is_corvane_fax(const char *path);

using fax_header_ptr = std::unique_ptr<fax_header_t, deleter<free_fax_header>>;

}  // namespace faxtray
