// dispatcher: from an arrived call of the inbox program to the procedure that answers it.
#pragma once

#include <rpc/rpc.h>

namespace faxtray {

// Decodes the argument of one call, runs its procedure and sends the result. Calls that cannot be
// decoded, answered or found get the RPC library's error replies (RFC 5531 section 9).
void in_prog_1(svc_req *request, SVCXPRT *transport) noexcept;

void _msgout(const char *text);  // to the system log, LOG_ERR

}  // namespace faxtray
