// The records in XDR form. libtirpc's own routines do the numbers; lengths and chains are done here,
// since its string routine allocates whatever length a stranger claims, and its pointer routine takes
// one stack frame an entry.
#include "protocol/xdr_records.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace faxtray {

// How many bytes we allocate on the strength of a claimed length. A multiple of 4, so that only the last
// piece of a string is followed by padding. A fax chunk (256 KiB) is read in one piece.
static constexpr u_int first_piece = 1024 * 1024;

// Reads `length` bytes and their padding into a block of their own, followed by a null byte. If the stream
// ends early, `*bytes` keeps what has been read, for the caller's XDR_FREE.
static bool_t decode_bytes(XDR *xdrs, char **bytes, u_int length) noexcept
{
    if (length > max_wire_length)
        return FALSE;
    // Each piece is at most as long as what has already arrived: a stranger must send half of what we
    // allocate.
    u_int have = 0;
    do {
        u_int next = have ? std::min(have, length - have) : std::min(first_piece, length);
        auto *block = static_cast<char *>(realloc(*bytes, size_t{have} + next + 1));
        if (!block)
            return FALSE;
        *bytes = block;
        if (!xdr_opaque(xdrs, block + have, next))
            return FALSE;
        have += next;
        block[have] = '\0';
    } while (have < length);
    return TRUE;
}

// Variable-length opaque data (RFC 4506 section 4.10): length, bytes, padding.
static bool_t xdr_counted(XDR *xdrs, char **bytes, u_int *length) noexcept
{
    switch (xdrs->x_op) {
    case XDR_ENCODE:
        return *length <= max_wire_length && xdr_u_int(xdrs, length) && xdr_opaque(xdrs, *bytes, *length);
    case XDR_DECODE:
        *bytes = nullptr;
        return xdr_u_int(xdrs, length) && decode_bytes(xdrs, bytes, *length);
    case XDR_FREE:
        free(*bytes);
        *bytes = nullptr;
        return TRUE;
    }
    return FALSE;
}

// A string (RFC 4506 section 4.11), which has the same form.
bool_t xdr_text(XDR *xdrs, char **text) noexcept
{
    if (xdrs->x_op != XDR_ENCODE) {
        u_int length = 0;
        return xdr_counted(xdrs, text, &length);
    }
    static char no_text[] = "";
    char *shown = *text ? *text : no_text;
    u_int length = static_cast<u_int>(std::min(strlen(shown), size_t{max_wire_length} + 1));
    return xdr_counted(xdrs, &shown, &length);
}

// A chain: each record is preceded by a boolean 1, and a 0 marks the end (RFC 4506 section 4.19).
template <class Record>
static bool_t xdr_chain(XDR *xdrs, Record **head, bool_t (*fields)(XDR *, Record *) noexcept) noexcept
{
    if (xdrs->x_op == XDR_FREE) {
        // Every exit leaves `*head` at the first record not yet freed.
        while (Record *record = *head) {
            fields(xdrs, record);
            *head = record->next;
            free(record);
        }
        return TRUE;
    }
    // Decoding links each record into the chain before reading its fields, so that the caller can free all
    // that was made if a later field fails.
    for (Record **link = head;; link = &(*link)->next) {
        if (xdrs->x_op == XDR_DECODE)
            *link = nullptr;
        bool_t more = *link != nullptr;
        if (!xdr_bool(xdrs, &more))
            return FALSE;
        if (xdrs->x_op == XDR_DECODE && more && !(*link = static_cast<Record *>(calloc(1, sizeof(Record)))))
            return FALSE;
        if (!*link)
            return TRUE;
        if (!fields(xdrs, *link))
            return FALSE;
    }
}

// One optional record; libtirpc allocates it zeroed and frees it with free().
template <class Record>
static bool_t xdr_optional(XDR *xdrs, Record **record, bool_t (*routine)(XDR *, Record *) noexcept) noexcept
{
    return xdr_pointer(xdrs, reinterpret_cast<char **>(record), sizeof(Record),
                       reinterpret_cast<xdrproc_t>(routine));
}

// Arguments.

bool_t xdr_faxid_t(XDR *xdrs, faxid_t *id) noexcept
{
    return xdr_u_int(xdrs, id);
}

// The fields after the user name and the password.
static bool_t xdr_pw_tail(XDR *xdrs, pw_req_t *pw) noexcept
{
    return xdr_text(xdrs, &pw->reserved_str) && xdr_int(xdrs, &pw->reserved_int) &&
           xdr_u_int(xdrs, &pw->check_value);
}

bool_t xdr_pw_req_t(XDR *xdrs, pw_req_t *pw) noexcept
{
    return xdr_text(xdrs, &pw->user) && xdr_text(xdrs, &pw->password) && xdr_pw_tail(xdrs, pw);
}

bool_t xdr_pw(XDR *xdrs, pw_req_t **pw) noexcept
{
    return xdr_optional(xdrs, pw, xdr_pw_req_t);
}

bool_t xdr_index_req_t(XDR *xdrs, index_req_t *req) noexcept
{
    return xdr_pw(xdrs, &req->pw) && xdr_int(xdrs, &req->faxid) && xdr_int(xdrs, &req->how) &&
           xdr_int(xdrs, &req->count) && xdr_u_int(xdrs, &req->check_value);
}

bool_t xdr_df_index_req_t(XDR *xdrs, df_index_req_t *req) noexcept
{
    return xdr_pw(xdrs, &req->pw) && xdr_text(xdrs, &req->inbox) && xdr_int(xdrs, &req->faxid) &&
           xdr_int(xdrs, &req->how) && xdr_int(xdrs, &req->count) && xdr_u_int(xdrs, &req->check_value);
}

bool_t xdr_df_info_req_t(XDR *xdrs, df_info_req_t *req) noexcept
{
    return xdr_pw(xdrs, &req->pw) && xdr_text(xdrs, &req->inbox);
}

bool_t xdr_client_fax_req_t(XDR *xdrs, client_fax_req_t *req) noexcept
{
    return xdr_pw(xdrs, &req->pw) && xdr_faxid_t(xdrs, &req->faxid) && xdr_u_int(xdrs, &req->size) &&
           xdr_u_int(xdrs, &req->offset);
}

bool_t xdr_df_fax_req_t(XDR *xdrs, df_fax_req_t *req) noexcept
{
    return xdr_pw(xdrs, &req->pw) && xdr_text(xdrs, &req->inbox) && xdr_faxid_t(xdrs, &req->faxid) &&
           xdr_u_int(xdrs, &req->size) && xdr_u_int(xdrs, &req->offset);
}

bool_t xdr_client_commit_req_t(XDR *xdrs, client_commit_req_t *req) noexcept
{
    return xdr_pw(xdrs, &req->pw) && xdr_faxid_t(xdrs, &req->faxid);
}

bool_t xdr_df_commit_req_t(XDR *xdrs, df_commit_req_t *req) noexcept
{
    return xdr_pw(xdrs, &req->pw) && xdr_text(xdrs, &req->inbox) && xdr_faxid_t(xdrs, &req->faxid);
}

bool_t xdr_client_deliver_req_t(XDR *xdrs, client_deliver_req_t *req) noexcept
{
    return xdr_pw(xdrs, &req->pw) && xdr_text(xdrs, &req->inbox) && xdr_faxid_t(xdrs, &req->faxid) &&
           xdr_text(xdrs, &req->recipients);
}

bool_t xdr_client_ui_req_t(XDR *xdrs, client_ui_req_t *req) noexcept
{
    return xdr_pw(xdrs, &req->pw) && xdr_text(xdrs, &req->ui_str1) && xdr_int(xdrs, &req->ui_int1) &&
           xdr_int(xdrs, &req->ui_int2) && xdr_text(xdrs, &req->ui_str2) &&
           xdr_u_int(xdrs, &req->check_value);
}

// Results. The *_fields routines do one record without its chain, for xdr_chain.

static bool_t ui_entry_fields(XDR *xdrs, ui_entry_t *entry) noexcept
{
    return xdr_text(xdrs, &entry->name) && xdr_text(xdrs, &entry->label) && xdr_int(xdrs, &entry->flag);
}

bool_t xdr_ui_entry_t(XDR *xdrs, ui_entry_t *entry) noexcept
{
    return ui_entry_fields(xdrs, entry) && xdr_chain(xdrs, &entry->next, ui_entry_fields);
}

bool_t xdr_ui_list_t(XDR *xdrs, ui_list_t *list) noexcept
{
    return xdr_u_int(xdrs, &list->check_value) && xdr_chain(xdrs, &list->head, ui_entry_fields);
}

bool_t xdr_file_info_t(XDR *xdrs, file_info_t *info) noexcept
{
    // Unsigned on the wire, so that times after 2038 survive.
    auto mtime = static_cast<u_int>(info->mtime);
    if (!xdr_text(xdrs, &info->name) || !xdr_text(xdrs, &info->sender_fax) ||
        !xdr_text(xdrs, &info->subaddress) || !xdr_text(xdrs, &info->pwd_frame) ||
        !xdr_int(xdrs, &info->pages) || !xdr_int(xdrs, &info->is_fax) || !xdr_faxid_t(xdrs, &info->faxid) ||
        !xdr_u_int(xdrs, &info->size) || !xdr_u_int(xdrs, &mtime))
        return FALSE;
    if (xdrs->x_op == XDR_DECODE)
        info->mtime = mtime;
    return TRUE;
}

static bool_t file_node_fields(XDR *xdrs, file_node_t *node) noexcept
{
    return xdr_file_info_t(xdrs, node);
}

bool_t xdr_file_node_t(XDR *xdrs, file_node_t *node) noexcept
{
    return file_node_fields(xdrs, node) && xdr_chain(xdrs, &node->next, file_node_fields);
}

bool_t xdr_file_list_t(XDR *xdrs, file_list_t *list) noexcept
{
    return xdr_u_int(xdrs, &list->check_value) && xdr_chain(xdrs, &list->head, file_node_fields);
}

bool_t xdr_rev_t(XDR *xdrs, rev_t *rev) noexcept
{
    return xdr_int(xdrs, &rev->major) && xdr_int(xdrs, &rev->minor) && xdr_text(xdrs, &rev->revision);
}

static bool_t av_node_fields(XDR *xdrs, av_node_t *node) noexcept
{
    return xdr_text(xdrs, &node->attr) && xdr_text(xdrs, &node->value);
}

bool_t xdr_av_node_t(XDR *xdrs, av_node_t *node) noexcept
{
    return av_node_fields(xdrs, node) && xdr_chain(xdrs, &node->next, av_node_fields);
}

static bool_t av_list_fields(XDR *xdrs, av_list_t *list) noexcept
{
    auto check_value = static_cast<u_int>(list->check_value);
    if (!xdr_text(xdrs, &list->key) || !xdr_u_int(xdrs, &check_value))
        return FALSE;
    if (xdrs->x_op == XDR_DECODE)
        list->check_value = static_cast<int32_t>(check_value);
    return xdr_chain(xdrs, &list->nodes, av_node_fields);
}

bool_t xdr_av_list_t(XDR *xdrs, av_list_t *list) noexcept
{
    return av_list_fields(xdrs, list) && xdr_chain(xdrs, &list->next, av_list_fields);
}

bool_t xdr_err_t(XDR *xdrs, err_t *err) noexcept
{
    return xdr_int(xdrs, &err->code) && xdr_int(xdrs, &err->sys_errno) && xdr_text(xdrs, &err->message);
}

bool_t xdr_res_type_t(XDR *xdrs, res_type_t *type) noexcept
{
    // By way of an integer: a stranger's number need not be one of the enumeration's.
    enum_t number = *type;
    if (!xdr_enum(xdrs, &number))
        return FALSE;
    *type = static_cast<res_type_t>(number);
    return TRUE;
}

// The numbers that share an arm are those of a user's inbox and of an incoming one.
bool_t xdr_in_res_t(XDR *xdrs, in_res_t *res) noexcept
{
    if (!xdr_res_type_t(xdrs, &res->res_type))
        return FALSE;
    switch (res->res_type) {
    case RES_REV:
        return xdr_rev_t(xdrs, &res->rev);
    case RES_INDEX:
    case RES_DF_INDEX:
        return xdr_optional(xdrs, &res->index, xdr_file_list_t);
    case RES_COMMIT_INDEX:
    case RES_COMMIT_FAX:
    case RES_DELIVER:
    case RES_SHUTDOWN:
    case RES_COMMIT_DF_INDEX:
    case RES_COMMIT_DF_FAX:
        return TRUE;
    case RES_FAX_INFO:
    case RES_DF_FAX_INFO:
        return xdr_optional(xdrs, &res->info, xdr_file_info_t);
    case RES_FAX:
    case RES_DF_FAX:
        return xdr_counted(xdrs, &res->fax.bytes, &res->fax.length);
    case RES_UI:
        return xdr_ui_list_t(xdrs, &res->ui);
    case RES_FAX_COUNT:
    case RES_DF_FAX_COUNT:
        return xdr_u_int(xdrs, &res->count);
    case RES_DF:
    case RES_STATUS:
        return xdr_chain(xdrs, &res->av, av_list_fields);
    case RES_ERROR:
        break;
    }
    return xdr_err_t(xdrs, &res->err);
}

// Optional records that may also come bare, without the boolean.

// Reads an optional record that begins with a text, in either form, up to the end of that text; null if it is
// absent. For a bare record with an empty text the next word has been consumed; *ahead then holds it.
template <class Record> static bool_t decode_head(XDR *xdrs, Record **record, char *Record::*text,
                                                  std::optional<u_int> *ahead) noexcept
{
    // The first word is the boolean or the length of a bare record's text; for 0 and 1 the second word
    // decides.
    u_int first = 0, second = 0;
    if (!xdr_u_int(xdrs, &first))
        return FALSE;
    bool has_second = first <= 1 && xdr_u_int(xdrs, &second);
    if (first == 0 && !has_second)
        return TRUE;  // absent
    if (first == 1 && !has_second)
        return FALSE;

    *record = static_cast<Record *>(calloc(1, sizeof(Record)));
    if (!*record)
        return FALSE;
    char **field = &((*record)->*text);
    if (first > 1)  // bare: the length of the text
        return decode_bytes(xdrs, field, first);
    if (first == 1 && (second == 0 || (second & 0xFFFFFF) != 0))  // the boolean, then that length
        return decode_bytes(xdrs, field, second);

    if (first == 1) {  // bare: a text of one character and its padding
        const char character[] = {static_cast<char>(second >> 24), '\0'};
        *field = strdup(character);
    } else {  // bare: an empty text
        *ahead = second;
        *field = strdup("");
    }
    return *field != nullptr;
}

// The bare and the optional form differ only before the end of the user name.
static bool_t decode_identity(XDR *xdrs, pw_req_t **pw) noexcept
{
    std::optional<u_int> password_length;
    if (!decode_head(xdrs, pw, &pw_req_t::user, &password_length))
        return FALSE;
    if (!*pw)
        return TRUE;
    char **password = &(*pw)->password;
    return (password_length ? decode_bytes(xdrs, password, *password_length) : xdr_text(xdrs, password)) &&
           xdr_pw_tail(xdrs, *pw);
}

bool_t xdr_identity(XDR *xdrs, pw_req_t **pw) noexcept
{
    if (xdrs->x_op != XDR_DECODE)
        return xdr_pw(xdrs, pw);
    *pw = nullptr;
    return decode_identity(xdrs, pw);
}

static bool_t decode_av_entry(XDR *xdrs, av_list_t **list) noexcept
{
    std::optional<u_int> check_value;
    if (!decode_head(xdrs, list, &av_list_t::key, &check_value))
        return FALSE;
    if (!*list)
        return TRUE;
    // The check value may already have been consumed.
    u_int value = check_value.value_or(0);
    if (!check_value && !xdr_u_int(xdrs, &value))
        return FALSE;
    (*list)->check_value = static_cast<int32_t>(value);
    return xdr_chain(xdrs, &(*list)->nodes, av_node_fields) &&
           xdr_chain(xdrs, &(*list)->next, av_list_fields);
}

bool_t xdr_av_entry(XDR *xdrs, av_list_t **list) noexcept
{
    if (xdrs->x_op != XDR_DECODE)
        return xdr_chain(xdrs, list, av_list_fields);
    *list = nullptr;
    return decode_av_entry(xdrs, list);
}

}  // namespace faxtray
