// The retrieval procedures: thin; they find the inbox node and call the index.
#include "daemon/retrieval_procedures.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "daemon/replies.h"
#include "daemon/request_checks.h"
#include "inbox/inbox_index.h"
#include "inbox/inbox_lists.h"
#include "util/access.h"
#include "util/owned.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

// Finding the inbox. Null: `result` is the error reply to return.

enum class caller_check { always, skipped };

// The caller's own inbox.
static user_node_t *own_inbox(const pw_req_t *pw, in_res_t &result, caller_check check = caller_check::always)
{
    const char *name = name_of(pw);
    user_node_t *node = find_node(users, name);
    if (node == nullptr) {
        error_reply(result, IE_INVALID, 0, "Trayd: Invalid user name: [%s].", shown(name));
        return nullptr;
    }
    if (check == caller_check::always && !caller_is_valid(pw, result))
        return nullptr;
    return node;
}

// The incoming inbox with the handle `inbox`, for which the caller must be a forwarder.
static user_node_t *incoming_inbox(const pw_req_t *pw, const char *inbox, in_res_t &result,
                                   caller_check check = caller_check::always)
{
    const char *handle = inbox ? inbox : "";  // a handle that is not there matches none
    if (check == caller_check::always && !caller_is_valid(pw, result))
        return nullptr;
    if (!caller_is_forwarder(pw, handle, result))
        return nullptr;
    user_node_t *node = find_node(incoming, handle);
    if (node == nullptr)
        error_reply(result, IE_INVALID, 0, "Trayd: Invalid inbox name: [%s].", handle);
    return node;
}

// Loads the index when there is none. Kept: one that is there is not scanned again; a fax is read or
// removed as the last listing knew it.
static bool has_index(user_node_t *node, in_res_t &result)
{
    if (node->index || load_inbox(node))
        return true;
    error_reply(result, IE_STATE, 0, "Trayd: Can't update index.");
    return false;
}

// Scans the inbox.
static bool scan_inbox(user_node_t *node, in_res_t &result)
{
    if (load_inbox(node))
        return true;
    error_reply(result, IE_STATE, 0, "Trayd: Can't load inbox: [%s].", shown(name_of(node->identity)));
    return false;
}

// Listing.

static in_res_t *list_faxes(user_node_t *node, u_int check_value, int faxid, int how, int count,
                            res_type_t type, in_res_t &result)
{
    err_t error = {};
    file_list_t *slice = get_index(node, check_value, faxid, how, count, &error);
    if (slice == nullptr)
        return error_reply(result, error);
    reply(result, type)->index = slice;
    return &result;
}

in_res_t *get_index_1_svc(index_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_index_1_svc request from [%s].\n", shown(name_of(request->pw)));
    if (!lists_are_current(result)) {
        trprintf("get_index_1_svc: update_lists failed.\n");
        return &result;
    }
    if (find_node(users, name_of(request->pw)) == nullptr)
        trprintf("get_index_1_svc: get_user_node failed.\n");
    user_node_t *node = own_inbox(request->pw, result);
    if (node == nullptr)
        return &result;
    return list_faxes(node, request->check_value, request->faxid, request->how, request->count, RES_INDEX,
                      result);
}

in_res_t *get_df_index_1_svc(df_index_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_df_index_1_svc request from [%s].\n", shown(name_of(request->pw)));
    if (!lists_are_current(result))
        return &result;
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result);
    if (node == nullptr)
        return &result;
    return list_faxes(node, request->check_value, request->faxid, request->how, request->count, RES_DF_INDEX,
                      result);
}

// Counting.

static in_res_t *count_faxes(user_node_t *node, res_type_t type, in_res_t &result)
{
    if (!scan_inbox(node, result))
        return &result;
    reply(result, type)->count = get_fax_count(node);
    return &result;
}

in_res_t *get_fax_count_1_svc(pw_req_t *pw, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_fax_count_1_svc request from [%s].\n", shown(name_of(pw)));
    if (!lists_are_current(result))
        return &result;
    user_node_t *node = own_inbox(pw, result);
    return node ? count_faxes(node, RES_FAX_COUNT, result) : &result;
}

in_res_t *get_df_fax_count_1_svc(df_info_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_df_fax_count_1_svc request from [%s].\n", shown(name_of(request->pw)));
    if (!lists_are_current(result))
        return &result;
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result);
    return node ? count_faxes(node, RES_DF_FAX_COUNT, result) : &result;
}

// Information on the oldest fax.

static in_res_t *oldest_fax(user_node_t *node, res_type_t type, in_res_t &result)
{
    if ((node->index == nullptr || node->index->head == nullptr) && !scan_inbox(node, result))
        return &result;
    while (file_node_t *oldest = node->index->head) {
        const char *path = mk_path(node->inbox, oldest->name);
        if (path == nullptr)
            return error_reply(result, IE_INVALID, 0, "Trayd: Can't create file path.\n");
        if (is_readable_file(path))
            break;
        file_node_ptr(delete_file_node(node->index, oldest->faxid));
    }
    reply(result, type)->info = node->index->head;
    return &result;
}

in_res_t *get_fax_info_1_svc(pw_req_t *pw, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_fax_info_1_svc request from [%s].\n", shown(name_of(pw)));
    if (!lists_are_current(result))
        return &result;
    user_node_t *node = own_inbox(pw, result);
    return node ? oldest_fax(node, RES_FAX_INFO, result) : &result;
}

in_res_t *get_df_fax_info_1_svc(df_info_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_df_fax_info_1_svc request from [%s].\n", shown(name_of(request->pw)));
    if (!lists_are_current(result))
        return &result;
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result);
    return node ? oldest_fax(node, RES_DF_FAX_INFO, result) : &result;
}

// Reading a chunk.

namespace {

struct chunk_t {  // grows, never shrinks
    c_string bytes;
    u_int capacity = 0;
};

}  // namespace

static constexpr size_t Page = 4096;

// Makes room for `size` bytes. On failure errno is set, and the chunk is as it was.
static bool reserve(chunk_t &chunk, u_int size)
{
    if (size <= chunk.capacity)
        return true;
    // Whole pages, which the kernel copies to noticeably faster.
    void *bytes = aligned_alloc(Page, (size + Page - 1) / Page * Page);
    if (bytes == nullptr)
        return false;
    chunk.bytes.reset(static_cast<char *>(bytes));
    chunk.capacity = size;
    return true;
}

static in_res_t *read_fax(user_node_t *node, faxid_t faxid, u_int size, u_int offset, chunk_t &chunk,
                          res_type_t type, in_res_t &result)
{
    const int id = static_cast<int>(faxid);
    if (!has_index(node, result))
        return &result;
    const file_node_t *fax = get_file_node(node->index, faxid);
    if (fax == nullptr)
        return error_reply(result, IE_INVALID, 0, "Trayd: Invalid fax id: %d", id);
    const char *path = mk_path(node->inbox, fax->name);
    if (path == nullptr) {
        fprintf(stderr, "Trayd: Can't create file path.\n");
        return error_reply(result, IE_SYSTEM, 0, "Trayd: Can't create full file path for fax id: %d.", id);
    }

    // Kept: the end of the file is asked for before the size is looked at.
    if (offset >= fax->size) {
        reply(result, type)->fax = {0, nullptr};
        return &result;
    }
    if (size < 1 || size > MAX_READ_SIZE)
        return error_reply(result, IE_SYSTEM, 0, "Trayd: Invalid read request size: %ld.",
                           static_cast<long>(size));
    if (!reserve(chunk, size))
        return error_reply(result, IE_SYSTEM, errno, "Trayd: Not enough memory.");

    // O_NONBLOCK: should the name be a FIFO's by now, opening it must not wait for a writer.
    const unique_fd fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd) {
        const int error = errno;
        return error_reply(result, IE_SYSTEM, error, "Trayd: Can't open fax id: %d: %s", id, strerror(error));
    }
    const ssize_t n = pread(fd.get(), chunk.bytes.get(), size, offset);
    if (n < 0) {
        const int error = errno;
        return error_reply(result, IE_SYSTEM, error, "Trayd: Can't read fax id: %d: %s", id, strerror(error));
    }
    node->last_get = time(nullptr);
    reply(result, type)->fax = {static_cast<u_int>(n), chunk.bytes.get()};
    return &result;
}

static caller_check check_at(u_int offset)
{
    return offset == 0 ? caller_check::always : caller_check::skipped;
}

in_res_t *get_fax_1_svc(client_fax_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    static chunk_t chunk;
    trprintf("get_fax_1_svc request from [%s].\n", shown(name_of(request->pw)));
    if (!lists_are_current(result))
        return &result;
    user_node_t *node = own_inbox(request->pw, result, check_at(request->offset));
    if (node == nullptr)
        return &result;
    return read_fax(node, request->faxid, request->size, request->offset, chunk, RES_FAX, result);
}

in_res_t *get_df_fax_1_svc(df_fax_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    static chunk_t chunk;
    const char *caller = shown(name_of(request->pw));
    trprintf("get_df_fax_1_svc request for inbox \"%s\" by DF \"%s\".\n", shown(request->inbox), caller);
    if (!lists_are_current(result))
        return &result;
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result, check_at(request->offset));
    if (node == nullptr)
        return &result;
    read_fax(node, request->faxid, request->size, request->offset, chunk, RES_DF_FAX, result);
    if (result.res_type == RES_DF_FAX)
        trprintf("get_df_fax_1_svc request for inbox \"%s\" from \"%s\" granted.\n", shown(request->inbox),
                 caller);
    return &result;
}

// Removing one fax.

// Removes the file of `fax`, whose node has left the index of `node`. Kept: the node stays out when the
// file cannot be removed; a later scan brings it back.
static in_res_t *remove_file(const user_node_t *node, const file_node_ptr &fax, res_type_t type,
                             in_res_t &result)
{
    errno = 0;
    const char *path = mk_path(node->inbox, fax->name);
    if (path == nullptr)
        return error_reply(result, IE_SYSTEM, errno, "Trayd: Can't create full file path for fax id: %d.",
                           static_cast<int>(fax->faxid));
    if (unlink(path) != 0) {
        const int error = errno;
        return error_reply(result, IE_SYSTEM, error, "Trayd: Can't remove committed file: [%s]: %s.", path,
                           strerror(error));
    }
    return reply(result, type);
}

// Removes the fax from `node`, or, where it is not there, from `fallback` (null for none).
static in_res_t *remove_fax(user_node_t *node, user_node_t *fallback, faxid_t faxid, res_type_t type,
                            in_res_t &result)
{
    for (user_node_t *inbox : {node, fallback}) {
        if (inbox == nullptr)
            continue;
        if (!has_index(inbox, result))
            return &result;
        if (const file_node_ptr fax{delete_file_node(inbox->index, faxid)})
            return remove_file(inbox, fax, type, result);
    }
    return error_reply(result, IE_INVALID, 0, "Trayd: Invalid fax id: %d", static_cast<int>(faxid));
}

in_res_t *commit_fax_1_svc(client_commit_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("commit_fax_1_svc request from [%s].\n", shown(name_of(request->pw)));
    if (!lists_are_current(result))
        return &result;
    user_node_t *node = own_inbox(request->pw, result);
    if (node == nullptr)
        return &result;
    // Kept: only an inbox with a description may fall back, and users' inboxes have none.
    user_node_t *fallback = node->description ? incoming.head : nullptr;
    return remove_fax(node, fallback, request->faxid, RES_COMMIT_FAX, result);
}

in_res_t *commit_df_fax_1_svc(df_commit_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    const char *caller = shown(name_of(request->pw));
    trprintf("commit_df_fax_1_svc request for inbox \"%s\" from \"%s\".\n", shown(request->inbox), caller);
    if (!lists_are_current(result))
        return &result;
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result);
    if (node == nullptr)
        return &result;
    remove_fax(node, nullptr, request->faxid, RES_COMMIT_DF_FAX, result);
    if (result.res_type == RES_COMMIT_DF_FAX)
        trprintf("commit_df_fax_1_svc request for inbox \"%s\" from \"%s\" granted.\n", shown(request->inbox),
                 caller);
    return &result;
}

// Removing what was shown.

static in_res_t *commit_shown(user_node_t *node, res_type_t type, in_res_t &result)
{
    if (node->index && node->commit_mark != 0 && commit_index(node) < 0)
        fprintf(stderr, "Trayd: Warning: commit_index failure.\n");
    return reply(result, type);
}

in_res_t *commit_index_1_svc(pw_req_t *pw, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("commit_index_1_svc request from [%s].\n", shown(name_of(pw)));
    if (!lists_are_current(result))
        return &result;
    user_node_t *node = own_inbox(pw, result);
    return node ? commit_shown(node, RES_COMMIT_INDEX, result) : &result;
}

in_res_t *commit_df_index_1_svc(df_info_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("commit_df_index_1_svc request from [%s].\n", shown(name_of(request->pw)));
    if (!lists_are_current(result))
        return &result;
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result);
    return node ? commit_shown(node, RES_COMMIT_DF_INDEX, result) : &result;
}

}  // namespace faxtray
