// xdr_regd: the XDR form (RFC 4506) of the registry protocol's records. The rules are those of xdr_records.
#pragma once

#include <rpc/rpc.h>

#include "registry/regd_requests.h"

namespace faxtray {

bool_t xdr_rg_q_update_req_t(XDR *xdrs, rg_q_update_req_t *request) noexcept;
bool_t xdr_rg_job_req_t(XDR *xdrs, rg_job_req_t *request) noexcept;
bool_t xdr_rg_job_update_req_t(XDR *xdrs, rg_job_update_req_t *request) noexcept;
bool_t xdr_rg_job_suspend_req_t(XDR *xdrs, rg_job_suspend_req_t *request) noexcept;
bool_t xdr_rg_av_req_t(XDR *xdrs, rg_av_req_t *request) noexcept;
bool_t xdr_rg_av_list_req_t(XDR *xdrs, rg_av_list_req_t *request) noexcept;
bool_t xdr_rg_get_df_by_dir_req_t(XDR *xdrs, rg_get_df_by_dir_req_t *request) noexcept;
bool_t xdr_rg_list_req_t(XDR *xdrs, rg_list_req_t *request) noexcept;
bool_t xdr_rg_update_av_entry_req_t(XDR *xdrs, rg_update_av_entry_req_t *request) noexcept;
bool_t xdr_rg_delete_av_entry_req_t(XDR *xdrs, rg_delete_av_entry_req_t *request) noexcept;

rg_arm_t rg_arm(int tag);  // what a reply of that tag carries

// The tag selects the arm. A list of records is encoded as optional data; on decoding, both this form and a
// bare list are accepted (see xdr_av_entry).
bool_t xdr_rg_res_t(XDR *xdrs, rg_res_t *result) noexcept;

}  // namespace faxtray
