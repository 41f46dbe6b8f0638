// The handles, the error record, the table of calls and the one way through which every call goes.
#include "registry/regd_client.h"

#include <rpc/rpc.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "faxfile/fax_header.h"
#include "protocol/xdr_records.h"
#include "registry/xdr_regd.h"
#include "rpc/timed_client.h"

namespace faxtray {

struct regd_handle_t {
    rg_res_t *reply;  // `room`, or null without a reply
    CLIENT *client;   // null: the slot is free
    rg_res_t room;
};

static constexpr int Client_failure = 15;  // the code of our own errors

static void free_error(err_t *error)
{
    if (!error)
        return;
    free(error->message);
    free(error);
}

using error_ptr = std::unique_ptr<err_t, deleter<free_error>>;

static regd_handle_t handles[16];
static error_ptr Error;      // of the last call
static error_ptr timed_out;  // of the time-out that is remembered
static timeval time_limit = {25, 0};

// The error record

static error_ptr copy_error(const err_t &source)
{
    error_ptr copy(static_cast<err_t *>(calloc(1, sizeof(err_t))));
    if (!copy) {
        fprintf(stderr, "set_regd_error: malloc(%d): %s\n", static_cast<int>(sizeof(err_t)), strerror(errno));
        return nullptr;
    }
    const char *message = source.message ? source.message : "";
    *copy = {source.code, source.sys_errno, strdup(message)};
    if (!copy->message) {
        fprintf(stderr, "set_regd_error: strdup(\"%s\"): %s\n", message, strerror(errno));
        return nullptr;
    }
    return copy;
}

const err_t *regd_error()
{
    return Error.get();
}

int set_regd_error(const err_t *source)
{
    Error = source ? copy_error(*source) : nullptr;
    return !source || Error;
}

// A failure of our own.
static void set_failure(const char *message)
{
    const err_t failure = {Client_failure, 0, const_cast<char *>(message)};
    set_regd_error(&failure);
}

// The same of an RPC operation, remembered when it was a time-out.
static void set_rpc_failure(clnt_stat status, const char *message)
{
    set_failure(message);
    if (status == RPC_TIMEDOUT && Error)
        timed_out = copy_error(*Error);
}

void regd_forget_timeout()
{
    timed_out.reset();
}

void regd_set_timeout(const timeval &limit)
{
    time_limit = limit;
}

pw_req_t *regd_credentials()
{
    static char none[] = "";
    static pw_req_t credentials = {none, none, none, 0, FAX_MAGIC};
    return &credentials;
}

// Handles

static regd_handle_t *free_slot()
{
    for (regd_handle_t &slot : handles)
        if (!slot.client)
            return &slot;
    return nullptr;
}

regd_handle_t *regd_open(const char *host, int queue)
{
    set_regd_error(nullptr);
    regd_handle_t *slot = free_slot();
    if (!slot) {
        set_failure("Out of faxregd handles");
        return nullptr;
    }
    if (timed_out) {
        set_regd_error(timed_out.get());
        return nullptr;
    }
    slot->client = timed_clnt_create(host && *host ? host : "localhost",
                                     REGD_PROG_BASE + static_cast<rpcprog_t>(queue), REGD_VERS, time_limit);
    if (slot->client) {
        slot->reply = nullptr;
        return slot;
    }
    const clnt_stat status = rpc_createerr.cf_stat;
    if (const char *text = clnt_spcreateerror("Can't connect to faxregd"))
        set_rpc_failure(status, text);
    else
        fprintf(stderr, "regd_open: clnt_spcreateerror failed.\n");
    return nullptr;
}

void regd_free(regd_handle_t *handle)
{
    if (handle && handle->reply) {
        xdr_free(reinterpret_cast<xdrproc_t>(xdr_rg_res_t), handle->reply);
        handle->reply = nullptr;
    }
    set_regd_error(nullptr);
}

int regd_close(regd_handle_t *handle)
{
    regd_free(handle);
    if (!handle || !handle->client)
        return 0;
    clnt_destroy(handle->client);
    handle->client = nullptr;
    return 1;
}

// The table of calls

namespace {

struct request_kind_t {
    xdrproc_t xdr;
    const char *maker;        // its function, for messages; null: the request is lent
    void (*release)(void *);  // what the maker made
};

struct call_t {
    const char *name;  // ours, for messages
    const char *stub;  // the remote procedure's, for messages
    rg_tag_t tag;      // of success; the procedure's number is one more
    request_kind_t request;
};

template <class Request> request_kind_t lent(bool_t (*xdr)(XDR *, Request *) noexcept)
{
    return {reinterpret_cast<xdrproc_t>(xdr), nullptr, nullptr};
}

template <class Request, void (*Free)(Request *)>
request_kind_t made(const char *maker, bool_t (*xdr)(XDR *, Request *) noexcept)
{
    return {reinterpret_cast<xdrproc_t>(xdr), maker,
            [](void *request) { Free(static_cast<Request *>(request)); }};
}

}  // namespace

static bool_t xdr_no_request(XDR *, void *) noexcept
{
    return TRUE;
}

static bool_t xdr_list_kind(XDR *xdrs, int *list_kind) noexcept
{
    return xdr_int(xdrs, list_kind);
}

// clang-format off
static const request_kind_t
    no_request        = lent(xdr_no_request),
    credentials_alone = lent(xdr_identity),
    text_alone        = lent(xdr_text),
    list_kind_alone   = lent(xdr_list_kind),
    q_update          = made<rg_q_update_req_t, free_q_update_req>("new_q_update_req", xdr_rg_q_update_req_t),
    job_info          = made<rg_job_req_t, free_job_info_req>("new_job_info_req", xdr_rg_job_req_t),
    job_update        = made<rg_job_update_req_t, free_job_update_req>("new_job_update_req", xdr_rg_job_update_req_t),
    job_delete        = made<rg_job_req_t, free_job_delete_req>("new_job_delete_req", xdr_rg_job_req_t),
    job_suspend       = made<rg_job_suspend_req_t, free_job_suspend_req>("new_job_suspend_req", xdr_rg_job_suspend_req_t),
    av                = made<rg_av_req_t, free_av_req>("new_av_req", xdr_rg_av_req_t),
    av_list           = made<rg_av_list_req_t, free_av_list_req>("new_av_list_req", xdr_rg_av_list_req_t),
    df_by_dir         = made<rg_get_df_by_dir_req_t, free_get_df_by_dir_req>("new_get_df_by_dir_req", xdr_rg_get_df_by_dir_req_t),
    lock              = made<rg_list_req_t, free_rg_lock_av_list_req>("new_rg_lock_av_list_req", xdr_rg_list_req_t),
    update_entry      = made<rg_update_av_entry_req_t, free_rg_update_av_entry_req>("new_rg_update_av_entry_req", xdr_rg_update_av_entry_req_t),
    delete_entry      = made<rg_delete_av_entry_req_t, free_rg_delete_av_entry_req>("new_rg_delete_av_entry_req", xdr_rg_delete_av_entry_req_t),
    commit            = made<rg_list_req_t, free_rg_commit_av_list_req>("new_rg_commit_av_list_req", xdr_rg_list_req_t),
    rollback          = made<rg_list_req_t, free_rg_rollback_av_list_req>("new_rg_rollback_av_list_req", xdr_rg_list_req_t);

static const call_t
    Rev              = {"regd_rev",                  "rg_rev_1",                  RG_REV,              no_request},
    Stats            = {"regd_get_stats",            "rg_stats_1",                RG_STATS,            credentials_alone},
    Update           = {"regd_update",               "rg_update_1",               RG_UPDATE,           q_update},
    Shutdown         = {"regd_shutdown",             "rg_shutdown_1",             RG_SHUTDOWN,         credentials_alone},
    New_faxid        = {"regd_new_faxid",            "rg_new_faxid_1",            RG_NEW_FAXID,        no_request},
    Q_status         = {"regd_get_q_status",         "rg_get_q_stat_1",           RG_Q_STAT,           credentials_alone},
    Job_info         = {"regd_get_job_info",         "rg_get_job_info_1",         RG_JOB_INFO,         job_info},
    Set_job_info     = {"regd_set_job_info",         "rg_set_job_info_1",         RG_SET_JOB_INFO,     job_update},
    Delete_job       = {"regd_delete_job",           "rg_delete_job_1",           RG_DELETE_JOB,       job_delete},
    Validate_pn      = {"regd_validate_pn",          "rg_valid_pn_1",             RG_VALID_PN,         text_alone},
    History          = {"regd_get_history",          "rg_history_info_1",         RG_HISTORY,          job_info},
    Time             = {"regd_get_time",             "rg_get_time_1",             RG_TIME,             no_request},
    Av_entry         = {"regd_get_av_entry",         "rg_get_av_entry_1",         RG_AV_ENTRY,         av},
    Av_list          = {"regd_get_av_list",          "rg_get_av_list_1",          RG_AV_LIST,          av_list},
    H_status         = {"regd_get_h_status",         "rg_get_h_stat_1",           RG_H_STAT,           credentials_alone},
    Suspend_job      = {"regd_suspend_job",          "rg_suspend_job_1",          RG_SUSPEND_JOB,      job_suspend},
    Df_by_dir        = {"regd_get_df_by_dir",        "rg_get_df_by_dir_1",        RG_DF_BY_DIR,        df_by_dir},
    List_update_time = {"regd_get_list_update_time", "rg_get_list_update_time_1", RG_LIST_UPDATE_TIME, list_kind_alone},
    Lock_list        = {"regd_lock_list",            "rg_lock_av_list_1",         RG_LOCK_LIST,        lock},
    Update_entry     = {"regd_update_list_entry",    "rg_update_av_entry_1",      RG_UPDATE_ENTRY,     update_entry},
    Delete_entry     = {"regd_delete_list_entry",    "rg_delete_av_entry_1",      RG_DELETE_ENTRY,     delete_entry},
    Commit_list      = {"regd_commit_list",          "rg_commit_av_list_1",       RG_COMMIT_LIST,      commit},
    Rollback_list    = {"regd_rollback_list",        "rg_rollback_av_list_1",     RG_ROLLBACK_LIST,    rollback};
// clang-format on

// A call

// A failure that shows only in what came back.
static void set_reply_failure(const call_t &row, const char *reason)
{
    char text[128];
    snprintf(text, sizeof text, "%s failure: %s", row.stub, reason);
    set_failure(text);
}

static bool send_call(regd_handle_t *handle, const call_t &row, void *request)
{
    if (!handle || !handle->client) {
        set_reply_failure(row, "no open handle");
        return false;
    }
    if (timed_out) {
        set_regd_error(timed_out.get());
        return false;
    }
    handle->room = {};
    const clnt_stat status = clnt_call(handle->client, rg_procedure(row.tag), row.request.xdr, request,
                                       reinterpret_cast<xdrproc_t>(xdr_rg_res_t), &handle->room, time_limit);
    handle->reply = &handle->room;  // in part at least, to be freed
    if (status == RPC_SUCCESS)
        return true;
    char prefix[64];
    snprintf(prefix, sizeof prefix, "%s failure", row.stub);
    const char *text = clnt_sperror(handle->client, prefix);
    if (!text)
        fprintf(stderr, "%s: clnt_spcreateerror failed.\n", row.name);
    set_rpc_failure(status, text ? text : "Unknown Error");
    return false;
}

// The reply to one call, the handle's own; null with an error record. A request that has a maker is taken
// over, and null when that has failed.
static rg_res_t *call(regd_handle_t *handle, const call_t &row, void *request)
{
    regd_free(handle);
    if (row.request.maker && !request) {
        fprintf(stderr, "%s: %s() failed.\n", row.name, row.request.maker);
        return nullptr;
    }
    const bool answered = send_call(handle, row, request);
    if (row.request.release)
        row.request.release(request);
    if (!answered)
        return nullptr;
    rg_res_t *reply = handle->reply;
    if (reply->tag == row.tag)
        return reply;
    if (rg_arm(reply->tag) == rg_arm_t::ERROR)
        set_regd_error(&reply->err);
    else
        set_reply_failure(row, "reply to another call");
    return nullptr;
}

static av_list_t *records(regd_handle_t *handle, const call_t &row, void *request)
{
    const rg_res_t *reply = call(handle, row, request);
    return reply ? reply->records : nullptr;
}

static int64_t number(regd_handle_t *handle, const call_t &row, void *request)
{
    const rg_res_t *reply = call(handle, row, request);
    return reply ? int64_t{reply->number} : -1;
}

static int deed(regd_handle_t *handle, const call_t &row, void *request)
{
    return call(handle, row, request) ? 1 : -1;
}

// The calls

av_list_t *regd_get_av_entry(regd_handle_t *handle, pw_req_t *credentials, int list_kind, int flag,
                             const char *key)
{
    av_list_t *entry = records(handle, Av_entry, new_av_req(credentials, list_kind, key, flag));
    if (!entry && !Error)
        set_reply_failure(Av_entry, "no record");
    return entry;
}

av_list_t *regd_get_ui_entry(regd_handle_t *handle, pw_req_t *credentials, const char *user)
{
    return regd_get_av_entry(handle, credentials, RG_USERS, 1, user);
}

av_list_t *regd_get_mi_entry(regd_handle_t *handle, pw_req_t *credentials, const char *modem)
{
    return regd_get_av_entry(handle, credentials, RG_MODEMS, 0, modem);
}

av_list_t *regd_get_df_entry(regd_handle_t *handle, pw_req_t *credentials, const char *forwarder)
{
    return regd_get_av_entry(handle, credentials, RG_FORWARDERS, 1, forwarder);
}

av_list_t *regd_get_av_list(regd_handle_t *handle, pw_req_t *credentials, int list_kind, int flag)
{
    return records(handle, Av_list, new_av_list_req(credentials, list_kind, flag));
}

av_list_t *regd_get_ui_list(regd_handle_t *handle, pw_req_t *credentials)
{
    return regd_get_av_list(handle, credentials, RG_USERS, 1);
}

av_list_t *regd_get_mi_list(regd_handle_t *handle, pw_req_t *credentials)
{
    return regd_get_av_list(handle, credentials, RG_MODEMS, 0);
}

av_list_t *regd_get_df_list(regd_handle_t *handle, pw_req_t *credentials)
{
    return regd_get_av_list(handle, credentials, RG_FORWARDERS, 1);
}

av_list_t *regd_get_conf_list(regd_handle_t *handle, pw_req_t *credentials)
{
    return regd_get_av_list(handle, credentials, RG_CONF, 0);
}

av_list_t *regd_get_df_by_dir(regd_handle_t *handle, pw_req_t *credentials, const char *directory)
{
    return records(handle, Df_by_dir, new_get_df_by_dir_req(credentials, directory));
}

av_list_t *regd_get_stats(regd_handle_t *handle, pw_req_t *credentials)
{
    return records(handle, Stats, &credentials);
}

av_list_t *regd_get_q_status(regd_handle_t *handle, pw_req_t *credentials)
{
    return records(handle, Q_status, &credentials);
}

av_list_t *regd_get_h_status(regd_handle_t *handle, pw_req_t *credentials)
{
    return records(handle, H_status, &credentials);
}

av_list_t *regd_get_job_info(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid)
{
    return records(handle, Job_info, new_job_info_req(credentials, faxid));
}

av_list_t *regd_get_history(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid)
{
    return records(handle, History, new_job_info_req(credentials, faxid));
}

const rev_t *regd_rev(regd_handle_t *handle)
{
    const rg_res_t *reply = call(handle, Rev, nullptr);
    return reply ? &reply->rev : nullptr;
}

int64_t regd_new_faxid(regd_handle_t *handle)
{
    return number(handle, New_faxid, nullptr);
}

int64_t regd_validate_pn(regd_handle_t *handle, const char *phone_number)
{
    char *lent = const_cast<char *>(phone_number);  // encoding only reads it
    return number(handle, Validate_pn, &lent);
}

int64_t regd_get_time(regd_handle_t *handle)
{
    return number(handle, Time, nullptr);
}

int64_t regd_get_list_update_time(regd_handle_t *handle, int list_kind)
{
    return number(handle, List_update_time, &list_kind);
}

int regd_update(regd_handle_t *handle, pw_req_t *credentials, const av_list_t *settings)
{
    return deed(handle, Update, new_q_update_req(credentials, settings));
}

int regd_shutdown(regd_handle_t *handle, pw_req_t *credentials)
{
    return deed(handle, Shutdown, &credentials);
}

int regd_set_job_info(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid, const av_list_t *settings)
{
    return deed(handle, Set_job_info, new_job_update_req(credentials, faxid, settings));
}

int regd_delete_job(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid)
{
    return deed(handle, Delete_job, new_job_delete_req(credentials, faxid));
}

int regd_suspend_job(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid, int suspend)
{
    return deed(handle, Suspend_job, new_job_suspend_req(credentials, faxid, suspend));
}

int regd_lock_list(regd_handle_t *handle, pw_req_t *credentials, int list_kind)
{
    return deed(handle, Lock_list, new_rg_lock_av_list_req(credentials, list_kind));
}

int regd_update_list_entry(regd_handle_t *handle, pw_req_t *credentials, int list_kind,
                           const av_list_t *entry)
{
    return deed(handle, Update_entry, new_rg_update_av_entry_req(credentials, list_kind, entry));
}

int regd_delete_list_entry(regd_handle_t *handle, pw_req_t *credentials, int list_kind, const char *key)
{
    return deed(handle, Delete_entry, new_rg_delete_av_entry_req(credentials, list_kind, key));
}

int regd_commit_list(regd_handle_t *handle, pw_req_t *credentials, int list_kind)
{
    return deed(handle, Commit_list, new_rg_commit_av_list_req(credentials, list_kind));
}

int regd_rollback_list(regd_handle_t *handle, pw_req_t *credentials, int list_kind)
{
    return deed(handle, Rollback_list, new_rg_rollback_av_list_req(credentials, list_kind));
}

}  // namespace faxtray
