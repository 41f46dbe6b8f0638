// Twelve procedures of one shape: trace the request, find the inbox with all checks on the way, act on it.
// Each act is one function, shared by the procedure for users and the one for forwarders.
#include "daemon/retrieval_procedures.h"

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
#include "inbox/listed_file.h"
#include "log/access_log.h"
#include "util/owned.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

// Finding the inbox. Null means that `result` is the error reply to send.

// Whether the caller's password is checked.
enum class password { checked, not_asked };

// The caller's own inbox, the lists being current.
static user_node_t *find_own(const pw_req_t *pw, in_res_t &result, password asked = password::checked)
{
    const char *name = name_of(pw);
    user_node_t *node = find_node(users, name);
    if (!node) {
        error_reply(result, IE_INVALID, 0, "Trayd: Invalid user name: [%s].", shown(name));
        return nullptr;
    }
    if (asked == password::checked && !check_caller(pw, result))
        return nullptr;
    return node;
}

// The caller's own inbox, after refreshing the lists.
static user_node_t *own_inbox(const pw_req_t *pw, in_res_t &result, password asked = password::checked)
{
    return refresh_lists(result) ? find_own(pw, result, asked) : nullptr;
}

// The incoming inbox with the handle `inbox`, after refreshing the lists. The caller must be its forwarder.
static user_node_t *incoming_inbox(const pw_req_t *pw, const char *inbox, in_res_t &result,
                                   password asked = password::checked)
{
    const char *handle = inbox ? inbox : "";  // "" is no inbox's handle
    if (!refresh_lists(result) || (asked == password::checked && !check_caller(pw, result)) ||
        !check_forwarder(pw, handle, result))
        return nullptr;
    user_node_t *node = find_node(incoming, handle);
    if (!node)
        error_reply(result, IE_INVALID, 0, "Trayd: Invalid inbox name: [%s].", handle);
    return node;
}

// Loads the index if there is none. Kept: an existing one is not scanned again; clients read and remove faxes
// by the ids of their last listing.
static bool ensure_index(user_node_t *node, in_res_t &result)
{
    if (node->index || load_inbox(node))
        return true;
    error_reply(result, IE_STATE, 0, "Trayd: Can't update index.");
    return false;
}

// Loads the index, or brings an existing one up to date.
static bool scan_inbox(user_node_t *node, in_res_t &result)
{
    if (load_inbox(node))
        return true;
    error_reply(result, IE_STATE, 0, "Trayd: Can't load inbox: [%s].", shown(name_of(node->identity)));
    return false;
}

// Listing

// Both kinds of request, in a form that get_index understands.
template <class Request>
static in_res_t *list_faxes(user_node_t *node, const Request &request, res_type_t type, in_res_t &result)
{
    err_t error = {};
    file_list_t *slice =
        get_index(node, request.check_value, request.faxid, request.how, request.count, &error);
    if (!slice)
        return error_reply(result, error);
    reply(result, type)->index = slice;
    return &result;
}

in_res_t *get_index_1_svc(index_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_index_1_svc request from [%s].\n", shown(name_of(request->pw)));
    // This procedure alone traces the failures of its checks, so it takes them one at a time.
    if (!refresh_lists(result)) {
        trprintf("get_index_1_svc: update_lists failed.\n");
        return &result;
    }
    if (!find_node(users, name_of(request->pw)))
        trprintf("get_index_1_svc: get_user_node failed.\n");
    user_node_t *node = find_own(request->pw, result);
    return node ? list_faxes(node, *request, RES_INDEX, result) : &result;
}

in_res_t *get_df_index_1_svc(df_index_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_df_index_1_svc request from [%s].\n", shown(name_of(request->pw)));
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result);
    return node ? list_faxes(node, *request, RES_DF_INDEX, result) : &result;
}

// Counting

// Counts after a scan, so that clients may poll for new faxes by the number alone.
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
    user_node_t *node = own_inbox(pw, result);
    return node ? count_faxes(node, RES_FAX_COUNT, result) : &result;
}

in_res_t *get_df_fax_count_1_svc(df_info_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_df_fax_count_1_svc request from [%s].\n", shown(name_of(request->pw)));
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result);
    return node ? count_faxes(node, RES_DF_FAX_COUNT, result) : &result;
}

// The oldest fax

// Clients ask for the oldest fax after each one they have taken, so a list that is not empty is not scanned
// again: what has vanished meanwhile is dropped as it is met.
static in_res_t *oldest_fax(user_node_t *node, res_type_t type, in_res_t &result)
{
    if ((!node->index || !node->index->head) && !scan_inbox(node, result))
        return &result;
    while (file_node_t *oldest = node->index->head) {
        const char *path = mk_path(node->inbox, oldest->name);
        if (!path)
            return error_reply(result, IE_INVALID, 0, "Trayd: Can't create file path.\n");
        if (is_there_as_listed(node->index, oldest->faxid, path))
            break;
    }
    reply(result, type)->info = node->index->head;
    return &result;
}

in_res_t *get_fax_info_1_svc(pw_req_t *pw, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_fax_info_1_svc request from [%s].\n", shown(name_of(pw)));
    user_node_t *node = own_inbox(pw, result);
    return node ? oldest_fax(node, RES_FAX_INFO, result) : &result;
}

in_res_t *get_df_fax_info_1_svc(df_info_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("get_df_fax_info_1_svc request from [%s].\n", shown(name_of(request->pw)));
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result);
    return node ? oldest_fax(node, RES_DF_FAX_INFO, result) : &result;
}

// Reading a chunk

namespace {

// The bytes of a procedure's last read. The buffer grows and never shrinks, since clients read in equal
// chunks.
struct chunk_t {
    c_string bytes;
    u_int capacity = 0;
};

}  // namespace

static constexpr size_t page = 4096;

// Makes room for `size` bytes. False with errno if memory is short; the chunk is then unchanged.
static bool reserve(chunk_t &chunk, u_int size)
{
    if (size <= chunk.capacity)
        return true;
    // Whole pages: reading into them is measurably faster.
    void *bytes = aligned_alloc(page, (size + page - 1) / page * page);
    if (!bytes)
        return false;
    chunk.bytes.reset(static_cast<char *>(bytes));
    chunk.capacity = size;
    return true;
}

// Kept: without strict checks, later chunks are served to anybody who knows the id; clients may rely on it.
static password password_at(u_int offset)
{
    return offset == 0 || strict_checks() ? password::checked : password::not_asked;
}

// Reads `size` bytes at `offset`, fewer at the end of the file, in one go: no state is kept between the
// chunks of a fax, so clients may read in any order and stop at any time.
static in_res_t *read_fax(user_node_t *node, faxid_t faxid, u_int size, u_int offset, chunk_t &chunk,
                          res_type_t type, in_res_t &result)
{
    const int id = static_cast<int>(faxid);
    if (!ensure_index(node, result))
        return &result;
    const file_node_t *fax = get_file_node(node->index, faxid);
    if (!fax)
        return error_reply(result, IE_INVALID, 0, "Trayd: Invalid fax id: %d", id);
    const char *path = mk_path(node->inbox, fax->name);
    if (!path) {
        fprintf(stderr, "Trayd: Can't create file path.\n");
        return error_reply(result, IE_SYSTEM, 0, "Trayd: Can't create full file path for fax id: %d.", id);
    }

    // Kept: the offset is looked at before the size; clients find the end of a fax with any size.
    if (offset >= fax->size) {
        reply(result, type)->fax = {0, nullptr};
        return &result;
    }
    if (size < 1 || size > MAX_READ_SIZE)
        return error_reply(result, IE_SYSTEM, 0, "Trayd: Invalid read request size: %ld.",
                           static_cast<long>(size));
    if (!reserve(chunk, size))
        return error_reply(result, IE_SYSTEM, errno, "Trayd: Not enough memory.");

    const unique_fd fd = open_listed(node->index, faxid, path);
    if (!fd) {
        const int error = errno;
        return error_reply(result, IE_SYSTEM, error, "Trayd: Can't open fax id: %d: %s", id, strerror(error));
    }
    const ssize_t n = pread(fd.get(), chunk.bytes.get(), size, offset);
    if (n < 0 || !is_as_listed(node->index, faxid, fd.get())) {
        const int error = errno;
        return error_reply(result, IE_SYSTEM, error, "Trayd: Can't read fax id: %d: %s", id, strerror(error));
    }
    node->last_get = time(nullptr);
    access_fetch(path, offset, static_cast<u_int>(n), password_at(offset) == password::checked);
    reply(result, type)->fax = {static_cast<u_int>(n), chunk.bytes.get()};
    return &result;
}

in_res_t *get_fax_1_svc(client_fax_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    static chunk_t chunk;
    trprintf("get_fax_1_svc request from [%s].\n", shown(name_of(request->pw)));
    user_node_t *node = own_inbox(request->pw, result, password_at(request->offset));
    if (!node)
        return &result;
    return read_fax(node, request->faxid, request->size, request->offset, chunk, RES_FAX, result);
}

in_res_t *get_df_fax_1_svc(df_fax_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    static chunk_t chunk;
    const char *caller = shown(name_of(request->pw));
    trprintf("get_df_fax_1_svc request for inbox \"%s\" by DF \"%s\".\n", shown(request->inbox), caller);
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result, password_at(request->offset));
    if (!node)
        return &result;
    read_fax(node, request->faxid, request->size, request->offset, chunk, RES_DF_FAX, result);
    if (result.res_type == RES_DF_FAX)
        trprintf("get_df_fax_1_svc request for inbox \"%s\" from \"%s\" granted.\n", shown(request->inbox),
                 caller);
    return &result;
}

// Removing one fax

// Removes the fax, file and node. Kept: if that fails, the node is gone all the same; the next scan lists the
// file that is there, with a new id.
static in_res_t *remove_file(const user_node_t *node, const file_node_t *fax, res_type_t type,
                             in_res_t &result)
{
    const faxid_t faxid = fax->faxid;
    errno = 0;  // mk_path may refuse a name without a system call
    const char *path = mk_path(node->inbox, fax->name);
    if (!path) {
        const int error = errno;
        drop_file_node(node->index, faxid);
        return error_reply(result, IE_SYSTEM, error, "Trayd: Can't create full file path for fax id: %d.",
                           static_cast<int>(faxid));
    }
    if (!remove_listed(node->index, faxid, path)) {
        const int error = errno;
        return error_reply(result, IE_SYSTEM, error, "Trayd: Can't remove committed file: [%s]: %s.", path,
                           strerror(error));
    }
    return reply(result, type);
}

// Removes the fax from `node` or, if it is not there, from `fallback` (null: none).
static in_res_t *remove_fax(user_node_t *node, user_node_t *fallback, faxid_t faxid, res_type_t type,
                            in_res_t &result)
{
    for (user_node_t *inbox : {node, fallback}) {
        if (!inbox)
            continue;
        if (!ensure_index(inbox, result))
            return &result;
        if (const file_node_t *fax = get_file_node(inbox->index, faxid))
            return remove_file(inbox, fax, type, result);
    }
    return error_reply(result, IE_INVALID, 0, "Trayd: Invalid fax id: %d", static_cast<int>(faxid));
}

in_res_t *commit_fax_1_svc(client_commit_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("commit_fax_1_svc request from [%s].\n", shown(name_of(request->pw)));
    user_node_t *node = own_inbox(request->pw, result);
    if (!node)
        return &result;
    // Kept: only an inbox with a description falls back to the first incoming one, and those of users have
    // none.
    user_node_t *fallback = node->description ? incoming.head : nullptr;
    return remove_fax(node, fallback, request->faxid, RES_COMMIT_FAX, result);
}

in_res_t *commit_df_fax_1_svc(df_commit_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    const char *caller = shown(name_of(request->pw));
    trprintf("commit_df_fax_1_svc request for inbox \"%s\" from \"%s\".\n", shown(request->inbox), caller);
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result);
    if (!node)
        return &result;
    remove_fax(node, nullptr, request->faxid, RES_COMMIT_DF_FAX, result);
    if (result.res_type == RES_COMMIT_DF_FAX)
        trprintf("commit_df_fax_1_svc request for inbox \"%s\" from \"%s\" granted.\n", shown(request->inbox),
                 caller);
    return &result;
}

// Removing what was shown

// Always succeeds once the checks have passed; what could not be removed is in the log.
static in_res_t *commit_shown(user_node_t *node, res_type_t type, in_res_t &result)
{
    // Nothing was shown yet: there is nothing to remove, and no reason to load the inbox.
    if (node->index && node->commit_mark != 0)
        commit_index(node);
    return reply(result, type);
}

in_res_t *commit_index_1_svc(pw_req_t *pw, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("commit_index_1_svc request from [%s].\n", shown(name_of(pw)));
    user_node_t *node = own_inbox(pw, result);
    return node ? commit_shown(node, RES_COMMIT_INDEX, result) : &result;
}

in_res_t *commit_df_index_1_svc(df_info_req_t *request, svc_req *) noexcept
{
    static in_res_t result;
    trprintf("commit_df_index_1_svc request from [%s].\n", shown(name_of(request->pw)));
    user_node_t *node = incoming_inbox(request->pw, request->inbox, result);
    return node ? commit_shown(node, RES_COMMIT_DF_INDEX, result) : &result;
}

}  // namespace faxtray
