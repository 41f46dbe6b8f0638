// fax_header: the header at the head of every fax file.
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

struct fax_header_t {
    char *name;   // never empty
    char *value;  // never null
    fax_header_t *next;
};

// The header of the file, or null with a message on standard error and standard output. Starts at offset
// 0 whatever the position, and leaves the file at the first byte of page data. The caller frees.
fax_header_t *read_fax_header(int fd);

// For whoever wants a few values of many files: the values of `names`, from the first `n` bytes of a file, in
// place, each ended there by a NUL; null for an attribute that is not there. No allocation, no message. False
// when the header does not lie within the bytes whole and sound: read_fax_header tells why, or reads the
// rest.
bool find_fax_header_values(char *bytes, size_t n, const char *const *names, const char **values,
                            size_t count);

// Writes preamble and text block at offset 0, in one write; page data stay where they are. 1, or -1 with a
// message on both streams; nothing is written of a list that would not read back (a colon or line feed in
// a name, a line feed in a value). A null list makes a header of no attributes, which readers refuse.
int write_fax_header(int fd, const fax_header_t *list);

// One attribute; a null value becomes "". Null with a message for a null or empty name or without memory.
fax_header_t *new_fax_header(const char *name, const char *value);
int free_fax_header(fax_header_t *list);  // with all behind it; null is allowed; always 1

// The value of the first attribute of exactly that name: the list's own. Null when there is none.
const char *get_fax_header_value(const fax_header_t *list, const char *name);

// Replaces the value of `name` or appends the attribute to a list that is not null (start one with
// new_fax_header). 1, or -1 with a message; the list is then as it was.
int set_fax_header_av(fax_header_t *list, const char *name, const char *value);
int set_fax_header_string(fax_header_t *list, const char *pair);  // from "name:value", cut at the first colon

// VR and DF codes (fax_params.h). A value that is missing or cannot be decoded is -1 with a warning on
// standard output, but a missing compression is 0 (MH), silently. The setters give 1, or -1 with a message.
int get_vertical_resolution(const fax_header_t *list);
int set_vertical_resolution(fax_header_t *list, int code);
int get_compression_mode(const fax_header_t *list);
int set_compression_mode(fax_header_t *list, int code);

// 1 when `path` is a regular file that begins with the magic; else 0, and the trace tells why.
int is_corvane_fax(const char *path);

using fax_header_ptr = std::unique_ptr<fax_header_t, deleter<free_fax_header>>;

}  // namespace faxtray
