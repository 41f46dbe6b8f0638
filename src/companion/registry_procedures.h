// registry_procedures: what faxregd answers to each procedure of the registry program.
#pragma once

#include <rpc/rpc.h>

namespace faxtray {

inline constexpr u_int max_registry_request = 64 * 1024;  // bytes

// Answers one call: the null procedure, the revision and one record by key. Every other procedure of the
// program is answered with an error record, not RPC's PROC_UNAVAIL, which clients of the registry could not
// show.
void registry_1(svc_req *request, SVCXPRT *transport) noexcept;

}  // namespace faxtray
