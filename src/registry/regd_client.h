// regd_client: asks the registry daemon for the fax server's shared records, over ONC RPC.
//
// A handle is one of 16 slots; it holds the last reply, into which results point until the next call on that
// handle or its close. There is one error record for the process: every function here but regd_error first
// frees the last one, and a failure leaves its own (unless memory is out, which is reported on standard
// error). Failures on our side have code 15; those that the registry reports have its codes.
//
// Opening and each call block for at most 25 seconds. Once one has timed out, regd_open and every call fail
// at once with the same record until regd_forget_timeout().
//
// The inbox server opens, calls regd_get_ui_entry, looks at regd_error and closes. All other calls are for
// the fax system's other programs; none here calls them.
#pragma once

#include <sys/time.h>

#include <cstdint>

#include "protocol/records.h"
#include "registry/regd_requests.h"

namespace faxtray {

struct regd_handle_t;  // one slot

// Host null or "": localhost, where a registry that another user than root or our own has registered counts
// as none, with a trace line that says whose it is. Null with an error record.
regd_handle_t *regd_open(const char *host, int queue);
int regd_close(regd_handle_t *handle);  // 1, or 0 if it is not open. Frees its reply and the error record
void regd_free(regd_handle_t *handle);  // frees the handle's last reply and the error record

const err_t *regd_error();                // of the last call; null if it succeeded
int set_regd_error(const err_t *source);  // replaces the record by a copy, or with null clears it; 1, or 0
                                          // when out of memory
pw_req_t *regd_credentials();             // of the daemon itself; static, must not be freed
void regd_forget_timeout();               // call it when a request has been answered
void regd_set_timeout(const timeval &limit);  // of opening and of each call, instead of 25 seconds

// One record by key, part of the reply: valid until the handle's next call. Null with an error record.
av_list_t *regd_get_av_entry(regd_handle_t *handle, pw_req_t *credentials, int list_kind, int flag,
                             const char *key);
av_list_t *regd_get_ui_entry(regd_handle_t *handle, pw_req_t *credentials, const char *user);
av_list_t *regd_get_mi_entry(regd_handle_t *handle, pw_req_t *credentials, const char *modem);
av_list_t *regd_get_df_entry(regd_handle_t *handle, pw_req_t *credentials, const char *forwarder);

// Whole lists and other records, part of the reply likewise. Null with an error record, or without one for an
// empty list.
av_list_t *regd_get_av_list(regd_handle_t *handle, pw_req_t *credentials, int list_kind, int flag);
av_list_t *regd_get_ui_list(regd_handle_t *handle, pw_req_t *credentials);
av_list_t *regd_get_mi_list(regd_handle_t *handle, pw_req_t *credentials);
av_list_t *regd_get_df_list(regd_handle_t *handle, pw_req_t *credentials);
av_list_t *regd_get_conf_list(regd_handle_t *handle, pw_req_t *credentials);
av_list_t *regd_get_df_by_dir(regd_handle_t *handle, pw_req_t *credentials, const char *directory);
av_list_t *regd_get_stats(regd_handle_t *handle, pw_req_t *credentials);
av_list_t *regd_get_q_status(regd_handle_t *handle, pw_req_t *credentials);
av_list_t *regd_get_h_status(regd_handle_t *handle, pw_req_t *credentials);
av_list_t *regd_get_job_info(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid);
av_list_t *regd_get_history(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid);
const rev_t *regd_rev(regd_handle_t *handle);

// Numbers; -1 with an error record.
int64_t regd_new_faxid(regd_handle_t *handle);
int64_t regd_validate_pn(regd_handle_t *handle, const char *phone_number);  // 1 valid, 0 not
int64_t regd_get_time(regd_handle_t *handle);                               // seconds since the epoch
int64_t regd_get_list_update_time(regd_handle_t *handle, int list_kind);

// Operations: 1, or -1 with an error record. Lists are locked, changed, then committed or rolled back.
int regd_update(regd_handle_t *handle, pw_req_t *credentials, const av_list_t *settings);
int regd_shutdown(regd_handle_t *handle, pw_req_t *credentials);
int regd_set_job_info(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid, const av_list_t *settings);
int regd_delete_job(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid);
int regd_suspend_job(regd_handle_t *handle, pw_req_t *credentials, faxid_t faxid, int suspend);
int regd_lock_list(regd_handle_t *handle, pw_req_t *credentials, int list_kind);
int regd_update_list_entry(regd_handle_t *handle, pw_req_t *credentials, int list_kind,
                           const av_list_t *entry);
int regd_delete_list_entry(regd_handle_t *handle, pw_req_t *credentials, int list_kind, const char *key);
int regd_commit_list(regd_handle_t *handle, pw_req_t *credentials, int list_kind);
int regd_rollback_list(regd_handle_t *handle, pw_req_t *credentials, int list_kind);

}  // namespace faxtray
