// regd_client: asks the registry daemon for the fax server's shared records, over ONC RPC.
//
// A handle is one of 16 slots; it holds the last reply, into which results point until the next call on that
// handle or its close. There is one error record for the process: every call first frees the last one.
// A call blocks for at most 25 seconds; once one has timed out, regd_open refuses until
// regd_forget_timeout().
#pragma once

#include "protocol/records.h"
#include "registry/regd_requests.h"

namespace faxtray {

struct regd_handle_t;  // a slot

regd_handle_t *regd_open(const char *host, int queue);  // null or "": localhost; null with an error record
int regd_close(regd_handle_t *handle);
void regd_free(regd_handle_t *handle);  // the handle's last reply and the error record

const err_t *regd_error();  // of the last call; null when it succeeded
int set_regd_error(const err_t *source);
pw_req_t *regd_credentials();  // of the daemon itself; static, never to be freed
void regd_forget_timeout();    // the running request has ended

// One record by key: the reply's own, valid until the handle's next call; null with an error record.
av_list_t *regd_get_av_entry(regd_handle_t *handle, pw_req_t *credentials, int list_kind, int flag,
                             const char *key);
av_list_t *regd_get_ui_entry(regd_handle_t *handle, pw_req_t *credentials, const char *user);
av_list_t *regd_get_mi_entry(regd_handle_t *handle, pw_req_t *credentials, const char *modem);
av_list_t *regd_get_df_entry(regd_handle_t *handle, pw_req_t *credentials, const char *forwarder);

}  // namespace faxtray
