// status_procedures: revision, status and shutdown, none of which looks at the lists or the caller. Each
// procedure owns the static result that it returns, valid until the next request.
#pragma once

#include <rpc/rpc.h>

#include "protocol/records.h"

namespace faxtray {

in_res_t *trayd_rev_1_svc(void *, svc_req *) noexcept;
in_res_t *get_status_1_svc(pw_req_t *, svc_req *) noexcept;      // always without a list
in_res_t *trayd_shutdown_1_svc(pw_req_t *, svc_req *) noexcept;  // only replies; the daemon keeps running

}  // namespace faxtray
