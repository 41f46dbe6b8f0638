// delivery_procedures: what forwarders ask before they deliver: their own inboxes, and the people faxes
// may be delivered to. Each procedure owns the static result that it returns, valid until the next
// request.
#pragma once

#include <rpc/rpc.h>

#include "protocol/records.h"

namespace faxtray {

in_res_t *get_ui_1_svc(client_ui_req_t *request, svc_req *) noexcept;  // the recipients
in_res_t *get_df_1_svc(pw_req_t *pw, svc_req *) noexcept;              // the caller's forwarder entry

}  // namespace faxtray
