// A file that does not begin as a fax is listed all the same, with pages -1: people put other things into
// inboxes, and clients show them.
#include "inbox/file_node.h"

#include <endian.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "faxfile/fax_header.h"
#include "inbox/fax_ids.h"
#include "inbox/fax_index.h"
#include "inbox/listed_file.h"
#include "log/report.h"
#include "util/trace.h"

namespace faxtray {

// The attributes of a fax header that the index shows.
namespace {
enum : int { PAGES, SENDER_FAX, SUB_FRAME, PWD_FRAME, SHOWN_ATTRS };
}
static constexpr const char *shown_attrs[SHOWN_ATTRS] = {"#PAGES", "SENDER_FAX#", "T30_SUB_FRAME",
                                                         "T30_PWD_FRAME"};

// A shorter file is no fax, whatever it holds.
static bool has_fax_magic(const char *bytes, ssize_t n)
{
    uint32_t word;
    memcpy(&word, bytes, sizeof word);
    return n >= static_cast<ssize_t>(sizeof word) && be32toh(word) == FAX_MAGIC;
}

// The value of "#PAGES" as a number, -1 if there is none.
static int page_count(const char *text, const char *path)
{
    if (!text)
        return -1;
    char *end;
    long count = strtol(text, &end, 10);  // like "%d": leading white space allowed, trailing text ignored
    if (end == text) {
        trprintf("warning: Invalid %s attribute in fax file \"%s\": [%s].\n", shown_attrs[PAGES], path, text);
        return -1;
    }
    // The wire has 32 bits; clients show -1 as unknown.
    return count >= INT32_MIN && count <= INT32_MAX ? static_cast<int>(count) : -1;
}

static char *value_or_unknown(const char *value)
{
    return borrowed(value ? value : "Unknown");
}

// A new node for a file; `values` are those of shown_attrs, or null if it is no fax. Null with a complaint
// without memory.
static file_node_t *describe_file(const char *path, const char *name, const struct stat &st,
                                  const char *const *values, scan_complaints_t &complaints)
{
    file_info_t info = {};
    info.name = borrowed(name);
    info.pages = -1;
    info.size = static_cast<u_int>(std::min<off_t>(st.st_size, UINT32_MAX));  // the wire has no more bits
    info.mtime = st.st_mtime;
    if (values) {
        info.is_fax = 1;
        info.pages = page_count(values[PAGES], path);
        info.sender_fax = value_or_unknown(values[SENDER_FAX]);
        info.subaddress = value_or_unknown(values[SUB_FRAME]);
        info.pwd_frame = value_or_unknown(values[PWD_FRAME]);
    }
    const char *refused;
    file_node_t *node = build_node(info, &refused);
    if (node)  // ids are not spent on failures
        node->faxid = newid();
    else if (refused)
        complaints.add("", "create_file_node: strdup(\"%s\"): %s", refused, strerror(errno));
    else
        complaints.add("", "create_file_node: malloc(): %s", strerror(errno));
    return node;
}

file_node_t *create_file_node(unique_fd fd, const char *path, const char *name, const struct stat &st,
                              scan_complaints_t &complaints)
{
    if (!fd) {
        complaints.add("", "create_file_node: cv_open(\"%s\"): %s", path, strerror(errno));
        return nullptr;
    }
    char block[4096];
    ssize_t n = read(fd.get(), block, sizeof block);
    if (n < 0) {  // an I/O error, or a directory
        complaints.add("", "create_file_node: read(\"%s\"): %s", path, strerror(errno));
        return nullptr;
    }
    if (!has_fax_magic(block, n))
        return describe_file(path, name, st, nullptr, complaints);

    const char *values[SHOWN_ATTRS];
    c_string text;  // of a header that is longer than the block
    if (!find_fax_header_values(block, static_cast<size_t>(n), shown_attrs, values, SHOWN_ATTRS)) {
        // Longer, or corrupt: the thorough way reads it all, or says what is wrong.
        text = read_fax_header_values(fd.get(), shown_attrs, values, SHOWN_ATTRS);
        if (!text) {
            complaints.is_in_log();  // by read_fax_header_values
            complaints.add("", "create_file_node: read_fax_header(\"%s\") failed", path);
            return nullptr;
        }
    }
    return describe_file(path, name, st, values, complaints);
}

file_node_t *create_file_node(const char *path, const char *name, const struct stat &st)
{
    try {
        scan_complaints_t complaints;
        std::string none;
        file_node_ptr node(create_file_node(open_inbox_file(AT_FDCWD, path), path, name, st, complaints));
        complaints.conclude(none);
        return node.release();
    } catch (const std::bad_alloc &) {
        report("create_file_node: malloc(): %s\n", strerror(ENOMEM));
        return nullptr;
    }
}

}  // namespace faxtray
