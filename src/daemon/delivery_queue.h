// delivery_queue: deliveries run one at a time, in the order in which they were asked for, each in a child
// process of its own, while the daemon serves everybody else.
//
// A request is checked when its turn comes, in the daemon, against the lists and indexes as they are then.
// The child has what it needs in its copy of the daemon's memory; it hands the encoded result back through a
// pipe. Once that is whole the delivery counts as done, however the child then ends.
#pragma once

#include <rpc/rpc.h>
#include <sys/types.h>

#include "protocol/records.h"

namespace faxtray {

// The two halves of procedure 7.
struct delivery_steps_t {
    // Checks the request. Null if the delivery may begin, else the reply to send at once.
    in_res_t *(*check)(client_deliver_req_t *request);
    // Carries out what was checked last; runs in the child.
    in_res_t *(*carry_out)(client_deliver_req_t *request);
    // Runs in the daemon once the child has ended: the daemon learns what the child may have noticed.
    void (*conclude)();
};

// Takes a request of procedure 7. The reply if it is to be sent at once, else null: the request is answered,
// or served again, later.
in_res_t *delivery_take(const delivery_steps_t &steps, client_deliver_req_t *request, SVCXPRT *transport);

bool delivery_is_running();
void delivery_kill();  // with the commands that it has started; the next start of the daemon cleans up

// A child has ended: true if it was a delivery, which is then concluded.
bool delivery_has_ended(pid_t child, int status);

}  // namespace faxtray
