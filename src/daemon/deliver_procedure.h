// deliver_procedure: a forwarder sends a fax of an incoming inbox to a user or to a group.
//
// The fax stays where it is; the forwarder removes it by a request of its own. Deliveries run one at a time,
// in child processes, while other requests are served (delivery_queue.h).
#pragma once

#include <rpc/rpc.h>

#include "protocol/records.h"

namespace faxtray {

// The result is static, valid until the next request; null if the request is answered later.
in_res_t *deliver_fax_1_svc(client_deliver_req_t *request, svc_req *) noexcept;

}  // namespace faxtray
