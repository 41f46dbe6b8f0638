// retrieval_procedures: listing, reading and removing faxes: users in their own inbox, designated forwarders
// (df) in the incoming inbox that the request names by its handle.
//
// Each procedure owns the static result that it returns, valid until the next request; the bytes of a read
// are valid until the next read by the same procedure.
#pragma once

#include <rpc/rpc.h>

#include "protocol/records.h"

namespace faxtray {

in_res_t *get_index_1_svc(index_req_t *request, svc_req *) noexcept;
in_res_t *get_df_index_1_svc(df_index_req_t *request, svc_req *) noexcept;

// How many faxes the inbox holds, after a scan.
in_res_t *get_fax_count_1_svc(pw_req_t *pw, svc_req *) noexcept;
in_res_t *get_df_fax_count_1_svc(df_info_req_t *request, svc_req *) noexcept;

// The oldest readable fax, or none. Unreadable ones before it are dropped from the index.
in_res_t *get_fax_info_1_svc(pw_req_t *pw, svc_req *) noexcept;
in_res_t *get_df_fax_info_1_svc(df_info_req_t *request, svc_req *) noexcept;

// At most MAX_READ_SIZE bytes of a fax file, none from its recorded size on. Kept: the password is checked at
// offset 0 only, once per file instead of once per chunk; clients send it with the first chunk.
in_res_t *get_fax_1_svc(client_fax_req_t *request, svc_req *) noexcept;
in_res_t *get_df_fax_1_svc(df_fax_req_t *request, svc_req *) noexcept;

// Remove one fax, whether or not a listing has shown it.
in_res_t *commit_fax_1_svc(client_commit_req_t *request, svc_req *) noexcept;
in_res_t *commit_df_fax_1_svc(df_commit_req_t *request, svc_req *) noexcept;

// Remove every fax up to the newest one that listings have shown since the last commit.
in_res_t *commit_index_1_svc(pw_req_t *pw, svc_req *) noexcept;
in_res_t *commit_df_index_1_svc(df_info_req_t *request, svc_req *) noexcept;

}  // namespace faxtray
