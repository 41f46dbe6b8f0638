// forwarder_procedures: what a forwarder asks before it delivers: which incoming inboxes are its own, and to
// whom it may deliver. Each procedure owns the static result that it returns, valid until the next request.
#pragma once

#include <rpc/rpc.h>

#include "protocol/records.h"

namespace faxtray {

in_res_t *get_ui_1_svc(client_ui_req_t *request, svc_req *) noexcept;  // the recipients
in_res_t *get_df_1_svc(pw_req_t *pw, svc_req *) noexcept;              // the caller's forwarder entry

}  // namespace faxtray
