// The handles, the error record, the table of calls, and call(), which makes every one of them.
#include "registry/regd_client.h"

#include <rpc/rpc.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "protocol/xdr_records.h"
#include "registry/xdr_regd.h"
#include "rpc/trusted_client.h"
#include "util/trace.h"

namespace faxtray {

struct regd_handle_t {
    rg_res_t *reply;  // `room`, or null if it holds no reply
    CLIENT *client;   // null: the slot is free
    rg_res_t room;
};

static constexpr int client_failure = 15;  // the code of our own errors

// By this check value the registry knows the fax system's own daemons: the magic number of fax files
// (FAX_MAGIC). Written again here, because the registry client needs nothing else of the fax file format.
static constexpr u_int daemon_check_value = 0xBADBAD16;

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
static error_ptr timed_out;  // of the first time-out since regd_forget_timeout()
static timeval time_limit = {25, 0};

// The error record

static error_ptr copy_error(const err_t &source)
{
    // Without memory for the record the caller still fails, but nobody can be told why except here.
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

// Records a failure of our own.
static void set_failure(const char *message)
{
    const err_t failure = {client_failure, 0, const_cast<char *>(message)};
    set_regd_error(&failure);
}

// Records a failure of the RPC library. A time-out is remembered: a registry that hangs would otherwise cost
// another 25 seconds at every call of a request, and there is one for each recipient.
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
    static pw_req_t credentials = {none, none, none, 0, daemon_check_value};
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

// On this host, any user may pose as the registry while there is none; answers end in shell commands, so only
// root's registry or our own is taken. Of another host its administrators are trusted.
static CLIENT *connect_to_registry(const char *host, rpcprog_t program)
{
    if (host && *host && strcmp(host, "localhost") != 0)
        return timed_clnt_create(host, program, REGD_VERS, time_limit);
    std::string stranger;
    CLIENT *client = trusted_clnt_create(program, REGD_VERS, time_limit, &stranger);
    if (!stranger.empty())
        trprintf("regd_open: A stranger's registry is ignored: %s.\n", stranger.c_str());
    return client;
}

regd_handle_t *regd_open(const char *host, int queue)
{
    set_regd_error(nullptr);
    // Out of handles first: that is our own leak, which a time-out must not hide.
    regd_handle_t *slot = free_slot();
    if (!slot) {
        set_failure("Out of faxregd handles");
        return nullptr;
    }
    if (timed_out) {
        set_regd_error(timed_out.get());
        return nullptr;
    }
    slot->client = connect_to_registry(host, REGD_PROG_BASE + static_cast<rpcprog_t>(queue));
    if (slot->client) {
        slot->reply = nullptr;
        return slot;
    }
    const clnt_stat status = rpc_createerr.cf_stat;  // before anything else can change it
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
    // The reply is freed first: it may be decoded in part only, and belongs to the slot, not the client.
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
    const char *maker;        // the function that made it, for messages; null if the caller only lends it
    void (*release)(void *);  // frees what the maker made
};

struct call_t {
    const char *name;  // ours, for messages
    const char *stub;  // the remote procedure, for messages
    rg_tag_t tag;      // of success; the procedure's number is one more
    request_kind_t request;
};

// A request that belongs to the caller, such as its credentials.
template <class Request> request_kind_t lent(bool_t (*xdr)(XDR *, Request *) noexcept)
{
    return {reinterpret_cast<xdrproc_t>(xdr), nullptr, nullptr};
}

// A request from a new_*_req function, which is freed after the call.
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
// Kinds of requests.
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

// The names in messages, and the tag of success, as the registry protocol has them.
static const call_t
    rev_call              = {"regd_rev",                  "rg_rev_1",                  RG_REV,              no_request},
    stats_call            = {"regd_get_stats",            "rg_stats_1",                RG_STATS,            credentials_alone},
    update_call           = {"regd_update",               "rg_update_1",               RG_UPDATE,           q_update},
    shutdown_call         = {"regd_shutdown",             "rg_shutdown_1",             RG_SHUTDOWN,         credentials_alone},
    new_faxid_call        = {"regd_new_faxid",            "rg_new_faxid_1",            RG_NEW_FAXID,        no_request},
    q_status_call         = {"regd_get_q_status",         "rg_get_q_stat_1",           RG_Q_STAT,           credentials_alone},
    job_info_call         = {"regd_get_job_info",         "rg_get_job_info_1",         RG_JOB_INFO,         job_info},
    set_job_info_call     = {"regd_set_job_info",         "rg_set_job_info_1",         RG_SET_JOB_INFO,     job_update},
    delete_job_call       = {"regd_delete_job",           "rg_delete_job_1",           RG_DELETE_JOB,       job_delete},
    validate_pn_call      = {"regd_validate_pn",          "rg_valid_pn_1",             RG_VALID_PN,         text_alone},
    history_call          = {"regd_get_history",          "rg_history_info_1",         RG_HISTORY,          job_info},
    time_call             = {"regd_get_time",             "rg_get_time_1",             RG_TIME,             no_request},
    av_entry_call         = {"regd_get_av_entry",         "rg_get_av_entry_1",         RG_AV_ENTRY,         av},
    av_list_call          = {"regd_get_av_list",          "rg_get_av_list_1",          RG_AV_LIST,          av_list},
    h_status_call         = {"regd_get_h_status",         "rg_get_h_stat_1",           RG_H_STAT,           credentials_alone},
    suspend_job_call      = {"regd_suspend_job",          "rg_suspend_job_1",          RG_SUSPEND_JOB,      job_suspend},
    df_by_dir_call        = {"regd_get_df_by_dir",        "rg_get_df_by_dir_1",        RG_DF_BY_DIR,        df_by_dir},
    list_update_time_call = {"regd_get_list_update_time", "rg_get_list_update_time_1", RG_LIST_UPDATE_TIME, list_kind_alone},
    lock_list_call        = {"regd_lock_list",            "rg_lock_av_list_1",         RG_LOCK_LIST,        lock},
    update_entry_call     = {"regd_update_list_entry",    "rg_update_av_entry_1",      RG_UPDATE_ENTRY,     update_entry},
    delete_entry_call     = {"regd_delete_list_entry",    "rg_delete_av_entry_1",      RG_DELETE_ENTRY,     delete_entry},
    commit_list_call      = {"regd_commit_list",          "rg_commit_av_list_1",       RG_COMMIT_LIST,      commit},
    rollback_list_call    = {"regd_rollback_list",        "rg_rollback_av_list_1",     RG_ROLLBACK_LIST,    rollback};
// clang-format on

// A call

// Records a failure that is not the RPC library's.
static void set_reply_failure(const call_t &row, const char *reason)
{
    char text[128];
    snprintf(text, sizeof text, "%s failure: %s", row.stub, reason);
    set_failure(text);
}

// Makes the call. False with an error record if there is no reply.
static bool send_call(regd_handle_t *handle, const call_t &row, void *request)
{
    if (!handle || !handle->client) {
        set_reply_failure(row, "no open handle");
        return false;
    }
    // The registry has hung once in this request: it is not waited for again.
    if (timed_out) {
        set_regd_error(timed_out.get());
        return false;
    }
    // The whole union is zeroed, since the XDR routines decode into, and free, whichever arm the tag selects.
    handle->room = {};
    const clnt_stat status = clnt_call(handle->client, rg_procedure(row.tag), row.request.xdr, request,
                                       reinterpret_cast<xdrproc_t>(xdr_rg_res_t), &handle->room, time_limit);
    handle->reply = &handle->room;  // even after a failure: what was decoded before it must be freed
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

// Makes one call and returns the reply, which belongs to the handle, or null with an error record. Takes over
// a request that has a maker; such a request is null if its maker failed.
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
    // Any other tag is an error, unless it is another call's: then the stream is out of step.
    if (rg_arm(reply->tag) == rg_arm_t::ERROR)
        set_regd_error(&reply->err);
    else
        set_reply_failure(row, "reply to another call");
    return nullptr;
}

// The three kinds of results: null, -1 and -1 with an error record.

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

static int operation(regd_handle_t *handle, const call_t &row, void *request)
{
    return call(handle, row, request) ? 1 : -1;
}

// The calls

av_list_t *regd_get_av_entry(regd_handle_t *handle, pw_req_t *credentials, int list_kind, int flag,
                             const char *key)
{
    // Unlike a list, one record cannot be empty: without this the caller would find no reason for the null.
    av_list_t *entry = records(handle, av_entry_call, new_av_req(credentials, list_kind, key, flag));
    if (!entry && !Error)
        set_reply_failure(av_entry_call, "no record");
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
    return records(handle, av_list_call, new_av_list_req(credentials, list_kind, flag));
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
    return records(handle, df_by_dir_call, new_get_df_by_dir_req(credentials, directory));
}

av_list_t *regd_get_stats(regd_handle_t *handle, pw_req_t *credentials)
{
    return records(handle, stats_call, &credentials);
}

av_list_t *regd_get_q_status(regd_handle_t *handle, pw_req_t *credentials)
{
    return records(handle, q_status_call, &credentials);
}

av_list_t *regd_get_h_status(regd_handle_t *handle, pw_req_t *credentials)
{
    return records(handle, h_status_call, &credentials);
}

av_list_t *regd_get_job_info(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid)
{
    return records(handle, job_info_call, new_job_info_req(credentials, faxid));
}

av_list_t *regd_get_history(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid)
{
    return records(handle, history_call, new_job_info_req(credentials, faxid));
}

const rev_t *regd_rev(regd_handle_t *handle)
{
    const rg_res_t *reply = call(handle, rev_call, nullptr);
    return reply ? &reply->rev : nullptr;
}

int64_t regd_new_faxid(regd_handle_t *handle)
{
    return number(handle, new_faxid_call, nullptr);
}

int64_t regd_validate_pn(regd_handle_t *handle, const char *phone_number)
{
    char *lent = const_cast<char *>(phone_number);  // encoding only reads it
    return number(handle, validate_pn_call, &lent);
}

int64_t regd_get_time(regd_handle_t *handle)
{
    return number(handle, time_call, nullptr);
}

int64_t regd_get_list_update_time(regd_handle_t *handle, int list_kind)
{
    return number(handle, list_update_time_call, &list_kind);
}

int regd_update(regd_handle_t *handle, pw_req_t *credentials, const av_list_t *settings)
{
    return operation(handle, update_call, new_q_update_req(credentials, settings));
}

int regd_shutdown(regd_handle_t *handle, pw_req_t *credentials)
{
    return operation(handle, shutdown_call, &credentials);
}

int regd_set_job_info(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid, const av_list_t *settings)
{
    return operation(handle, set_job_info_call, new_job_update_req(credentials, faxid, settings));
}

int regd_delete_job(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid)
{
    return operation(handle, delete_job_call, new_job_delete_req(credentials, faxid));
}

int regd_suspend_job(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid, int suspend)
{
    return operation(handle, suspend_job_call, new_job_suspend_req(credentials, faxid, suspend));
}

int regd_lock_list(regd_handle_t *handle, pw_req_t *credentials, int list_kind)
{
    return operation(handle, lock_list_call, new_rg_lock_av_list_req(credentials, list_kind));
}

int regd_update_list_entry(regd_handle_t *handle, pw_req_t *credentials, int list_kind,
                           const av_list_t *entry)
{
    return operation(handle, update_entry_call, new_rg_update_av_entry_req(credentials, list_kind, entry));
}

int regd_delete_list_entry(regd_handle_t *handle, pw_req_t *credentials, int list_kind, const char *key)
{
    return operation(handle, delete_entry_call, new_rg_delete_av_entry_req(credentials, list_kind, key));
}

int regd_commit_list(regd_handle_t *handle, pw_req_t *credentials, int list_kind)
{
    return operation(handle, commit_list_call, new_rg_commit_av_list_req(credentials, list_kind));
}

int regd_rollback_list(regd_handle_t *handle, pw_req_t *credentials, int list_kind)
{
    return operation(handle, rollback_list_call, new_rg_rollback_av_list_req(credentials, list_kind));
}

}  // namespace faxtray
