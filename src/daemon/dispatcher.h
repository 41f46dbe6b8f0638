// dispatcher: from an incoming call of the inbox program to the procedure that answers it.
#pragma once

#include <rpc/rpc.h>

namespace faxtray {

// Decodes the argument of one call, runs its procedure and sends the result. A call that cannot be decoded,
// answered or found gets the matching error reply of RFC 5531 section 9.
void in_prog_1(svc_req *request, SVCXPRT *transport) noexcept;

void _msgout(const char *text);  // writes it to the system log, LOG_ERR

}  // namespace faxtray
