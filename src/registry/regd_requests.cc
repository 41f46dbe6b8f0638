// Requests are made whole or not at all: a zeroed record, filled field by field.
#include "registry/regd_requests.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "registry/xdr_regd.h"

namespace faxtray {

// The XDR routines free what they decode, and our own requests have the same shape: so no second list of
// fields can fall behind the first.
template <class Request>
static void free_request(bool_t (*fields)(XDR *, Request *) noexcept, Request *request)
{
    if (!request)
        return;
    XDR xdrs = {};
    xdrs.x_op = XDR_FREE;
    fields(&xdrs, request);
    free(request);
}

void free_q_update_req(rg_q_update_req_t *request)
{
    free_request(xdr_rg_q_update_req_t, request);
}

void free_job_info_req(rg_job_req_t *request)
{
    free_request(xdr_rg_job_req_t, request);
}

void free_job_update_req(rg_job_update_req_t *request)
{
    free_request(xdr_rg_job_update_req_t, request);
}

void free_job_delete_req(rg_job_req_t *request)
{
    free_request(xdr_rg_job_req_t, request);
}

void free_job_suspend_req(rg_job_suspend_req_t *request)
{
    free_request(xdr_rg_job_suspend_req_t, request);
}

void free_av_req(rg_av_req_t *request)
{
    free_request(xdr_rg_av_req_t, request);
}

void free_av_list_req(rg_av_list_req_t *request)
{
    free_request(xdr_rg_av_list_req_t, request);
}

void free_get_df_by_dir_req(rg_get_df_by_dir_req_t *request)
{
    free_request(xdr_rg_get_df_by_dir_req_t, request);
}

void free_rg_lock_av_list_req(rg_list_req_t *request)
{
    free_request(xdr_rg_list_req_t, request);
}

void free_rg_update_av_entry_req(rg_update_av_entry_req_t *request)
{
    free_request(xdr_rg_update_av_entry_req_t, request);
}

void free_rg_delete_av_entry_req(rg_delete_av_entry_req_t *request)
{
    free_request(xdr_rg_delete_av_entry_req_t, request);
}

void free_rg_commit_av_list_req(rg_list_req_t *request)
{
    free_request(xdr_rg_list_req_t, request);
}

void free_rg_rollback_av_list_req(rg_list_req_t *request)
{
    free_request(xdr_rg_list_req_t, request);
}

// Makers. The steps take the maker's name for their messages. After a failure the owner frees what was made
// so far; fields that are still null are allowed.

namespace {
template <class Request, bool_t (*Fields)(XDR *, Request *) noexcept> struct request_deleter {
    void operator()(Request *request) const noexcept { free_request(Fields, request); }
};
}  // namespace

// A zeroed request with a copy of the credentials, or null with a message.
template <class Request, bool_t (*Fields)(XDR *, Request *) noexcept>
static std::unique_ptr<Request, request_deleter<Request, Fields>> new_request(const char *maker, pw_req_t *pw)
{
    std::unique_ptr<Request, request_deleter<Request, Fields>> request(
        static_cast<Request *>(calloc(1, sizeof(Request))));
    if (!request) {
        fprintf(stderr, "%s: malloc(%d): %s.\n", maker, static_cast<int>(sizeof(Request)), strerror(errno));
        return nullptr;
    }
    if (pw && !(request->pw = copy_pw(pw))) {
        fprintf(stderr, "%s: copy_pw() failed.\n", maker);
        return nullptr;
    }
    return request;
}

// Stores a copy of `text`, null counting as "". False with a message when out of memory.
static bool copy_text(const char *maker, char **field, const char *text)
{
    text = text ? text : "";
    *field = strdup(text);
    if (!*field)
        fprintf(stderr, "%s: strdup(\"%s\"): %s.\n", maker, text, strerror(errno));
    return *field != nullptr;
}

// Stores a copy of one list, or null. False with a message when out of memory.
static bool copy_list(const char *maker, av_list_t **field, const av_list_t *list)
{
    *field = list ? copy_av_list(list) : nullptr;
    if (list && !*field)
        fprintf(stderr, "%s: copy_av_list() failed.\n", maker);
    return !list || *field;
}

rg_q_update_req_t *new_q_update_req(pw_req_t *pw, const av_list_t *settings)
{
    auto request = new_request<rg_q_update_req_t, xdr_rg_q_update_req_t>("new_q_update_req", pw);
    if (!request || !copy_list("new_q_update_req", &request->settings, settings))
        return nullptr;
    return request.release();
}

rg_job_req_t *new_job_info_req(pw_req_t *pw, faxid_t faxid)
{
    auto request = new_request<rg_job_req_t, xdr_rg_job_req_t>("new_job_info_req", pw);
    if (request)
        request->faxid = faxid;
    return request.release();
}

rg_job_update_req_t *new_job_update_req(pw_req_t *pw, faxid_t faxid, const av_list_t *settings)
{
    auto request = new_request<rg_job_update_req_t, xdr_rg_job_update_req_t>("new_job_update_req", pw);
    if (!request || !copy_list("new_job_update_req", &request->settings, settings))
        return nullptr;
    request->faxid = faxid;
    return request.release();
}

rg_job_req_t *new_job_delete_req(pw_req_t *pw, faxid_t faxid)
{
    auto request = new_request<rg_job_req_t, xdr_rg_job_req_t>("new_job_delete_req", pw);
    if (request)
        request->faxid = faxid;
    return request.release();
}

rg_job_suspend_req_t *new_job_suspend_req(pw_req_t *pw, faxid_t faxid, int suspend)
{
    auto request = new_request<rg_job_suspend_req_t, xdr_rg_job_suspend_req_t>("new_job_suspend_req", pw);
    if (!request)
        return nullptr;
    request->faxid = faxid;
    request->suspend = suspend;
    return request.release();
}

rg_av_req_t *new_av_req(pw_req_t *pw, int list_kind, const char *key, int flag)
{
    auto request = new_request<rg_av_req_t, xdr_rg_av_req_t>("new_av_req", pw);
    if (!request || !copy_text("new_av_req", &request->key, key))
        return nullptr;
    request->list_kind = list_kind;
    request->flag = flag;
    return request.release();
}

rg_av_list_req_t *new_av_list_req(pw_req_t *pw, int list_kind, int flag)
{
    auto request = new_request<rg_av_list_req_t, xdr_rg_av_list_req_t>("new_av_list_req", pw);
    if (!request)
        return nullptr;
    request->list_kind = list_kind;
    request->flag = flag;
    return request.release();
}

rg_get_df_by_dir_req_t *new_get_df_by_dir_req(pw_req_t *pw, const char *directory)
{
    auto request =
        new_request<rg_get_df_by_dir_req_t, xdr_rg_get_df_by_dir_req_t>("new_get_df_by_dir_req", pw);
    if (!request || !copy_text("new_get_df_by_dir_req", &request->directory, directory))
        return nullptr;
    return request.release();
}

// Locking, committing and rolling back differ only in the maker's name, which messages show.
static rg_list_req_t *new_list_req(const char *maker, pw_req_t *pw, int list_kind)
{
    auto request = new_request<rg_list_req_t, xdr_rg_list_req_t>(maker, pw);
    if (request)
        request->list_kind = list_kind;
    return request.release();
}

rg_list_req_t *new_rg_lock_av_list_req(pw_req_t *pw, int list_kind)
{
    return new_list_req("new_rg_lock_av_list_req", pw, list_kind);
}

rg_list_req_t *new_rg_commit_av_list_req(pw_req_t *pw, int list_kind)
{
    return new_list_req("new_rg_commit_av_list_req", pw, list_kind);
}

rg_list_req_t *new_rg_rollback_av_list_req(pw_req_t *pw, int list_kind)
{
    return new_list_req("new_rg_rollback_av_list_req", pw, list_kind);
}

rg_update_av_entry_req_t *new_rg_update_av_entry_req(pw_req_t *pw, int list_kind, const av_list_t *entry)
{
    auto request =
        new_request<rg_update_av_entry_req_t, xdr_rg_update_av_entry_req_t>("new_rg_update_av_entry_req", pw);
    if (!request || !copy_list("new_rg_update_av_entry_req", &request->entry, entry))
        return nullptr;
    request->list_kind = list_kind;
    return request.release();
}

rg_delete_av_entry_req_t *new_rg_delete_av_entry_req(pw_req_t *pw, int list_kind, const char *key)
{
    auto request =
        new_request<rg_delete_av_entry_req_t, xdr_rg_delete_av_entry_req_t>("new_rg_delete_av_entry_req", pw);
    if (!request || !copy_text("new_rg_delete_av_entry_req", &request->key, key))
        return nullptr;
    request->list_kind = list_kind;
    return request.release();
}

}  // namespace faxtray
