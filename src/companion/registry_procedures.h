// registry_procedures: what faxregd answers to each procedure of the registry program.
#pragma once

#include <rpc/rpc.h>

namespace faxtray {

inline constexpr u_int MAX_REGISTRY_REQUEST = 64 * 1024;  // bytes

// Answers one call: the null procedure, the revision and one record by key. Every other procedure of the
// program gets an error that says it is not served here.
void registry_1(svc_req *request, SVCXPRT *transport) noexcept;

}  // namespace faxtray
