// xdr_records: the XDR form (RFC 4506) of the inbox protocol's records.
//
// Each routine encodes, decodes or frees as the stream's x_op says and stops at the first field that
// fails. Decode into a zeroed record, and free it even if decoding failed. A null string is
// encoded as "". What is longer than 1 MiB is read in pieces that grow as bytes arrive; a length above
// 16 MiB is refused. Chains are walked, not recursed into, so that their length costs no stack.
#pragma once

#include <rpc/rpc.h>

#include "protocol/records.h"

namespace faxtray {

inline constexpr u_int max_wire_length = 16 * 1024 * 1024;  // bytes a string or array may claim

bool_t xdr_text(XDR *xdrs, char **text) noexcept;  // a string
bool_t xdr_pw(XDR *xdrs, pw_req_t **pw) noexcept;  // an optional pw_req_t
bool_t xdr_faxid_t(XDR *xdrs, faxid_t *id) noexcept;
bool_t xdr_pw_req_t(XDR *xdrs, pw_req_t *pw) noexcept;
bool_t xdr_index_req_t(XDR *xdrs, index_req_t *req) noexcept;
bool_t xdr_df_index_req_t(XDR *xdrs, df_index_req_t *req) noexcept;
bool_t xdr_df_info_req_t(XDR *xdrs, df_info_req_t *req) noexcept;
bool_t xdr_client_fax_req_t(XDR *xdrs, client_fax_req_t *req) noexcept;
bool_t xdr_df_fax_req_t(XDR *xdrs, df_fax_req_t *req) noexcept;
bool_t xdr_client_commit_req_t(XDR *xdrs, client_commit_req_t *req) noexcept;
bool_t xdr_df_commit_req_t(XDR *xdrs, df_commit_req_t *req) noexcept;
bool_t xdr_client_deliver_req_t(XDR *xdrs, client_deliver_req_t *req) noexcept;
bool_t xdr_client_ui_req_t(XDR *xdrs, client_ui_req_t *req) noexcept;
bool_t xdr_ui_entry_t(XDR *xdrs, ui_entry_t *entry) noexcept;  // with the chain after it
bool_t xdr_ui_list_t(XDR *xdrs, ui_list_t *list) noexcept;
bool_t xdr_file_info_t(XDR *xdrs, file_info_t *info) noexcept;
bool_t xdr_file_node_t(XDR *xdrs, file_node_t *node) noexcept;  // with the chain after it
bool_t xdr_file_list_t(XDR *xdrs, file_list_t *list) noexcept;
bool_t xdr_rev_t(XDR *xdrs, rev_t *rev) noexcept;
bool_t xdr_av_node_t(XDR *xdrs, av_node_t *node) noexcept;  // with the chain after it
bool_t xdr_av_list_t(XDR *xdrs, av_list_t *list) noexcept;  // with the chain after it
bool_t xdr_err_t(XDR *xdrs, err_t *err) noexcept;
bool_t xdr_res_type_t(XDR *xdrs, res_type_t *type) noexcept;

// res_type selects the arm; an unknown type carries an error record. xdr_free with this routine frees a
// decoded result.
bool_t xdr_in_res_t(XDR *xdrs, in_res_t *res) noexcept;

// The argument of the procedures that take only the caller's identity: `*pw` is null if it is absent. Encodes
// the optional form; decodes that and the bare record. A first word above 1 is the length of a bare record's
// user name. 1 is the boolean, unless the second word can only be a one-character name (its first byte set,
// the other three zero). 0 at the end of the data is an absent identity; 0 with more after it is the length
// of a bare record's empty name.
bool_t xdr_identity(XDR *xdrs, pw_req_t **pw) noexcept;

// An av_list_t, with the chain after it, that may be absent. Encodes the optional form; decodes that and the
// bare list, which are distinguished in the same way.
bool_t xdr_av_entry(XDR *xdrs, av_list_t **list) noexcept;

}  // namespace faxtray
