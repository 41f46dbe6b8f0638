// delivery_procedures: what forwarders need besides reading: their own inboxes, the people faxes may
// be forwarded to, and the forwarding itself. Each procedure owns the static result that it returns,
// valid until the next request.
#pragma once

#include <rpc/rpc.h>

#include "protocol/records.h"

namespace faxtray {

in_res_t *deliver_fax_1_svc(client_deliver_req_t *request, svc_req *) noexcept;
in_res_t *get_ui_1_svc(client_ui_req_t *request, svc_req *) noexcept;  // the recipients
in_res_t *get_df_1_svc(pw_req_t *pw, svc_req *) noexcept;              // the caller's forwarder entry

}  // namespace faxtray
