// The few calls that a host without the fax system's own registry needs. Results are static: they are encoded
// before the next request is read.
#include "companion/registry_procedures.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <iterator>

#include "companion/registry_tables.h"
#include "registry/xdr_regd.h"
#include "util/version_id.h"

namespace faxtray {

// An error reply; its text is static, valid until the next one.
static rg_res_t error_reply(int code, int sys_errno, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
static rg_res_t error_reply(int code, int sys_errno, const char *format, ...)
{
    static char text[512];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    rg_res_t result = {};
    result.tag = RG_ERROR;
    result.err = {code, sys_errno, text};
    return result;
}

static rg_res_t rg_rev_1_svc()
{
    rg_res_t result = {};
    result.tag = RG_REV;
    result.rev = {-1, -1, const_cast<char *>(SCCS_ID)};  // encoding only reads it
    return result;
}

namespace {

struct list_t {
    const char *what;
    table_answer (*find)(const char *name, const av_list_t **entry);
};

}  // namespace

// Indexed by list kind.
static const list_t lists[] = {
    {"user", find_user},
    {"modem", find_modem},
    {"forwarder", find_forwarder},
};

// Kept: the flag is ignored. Clients send 1 for users and forwarders, 0 for modems.
static rg_res_t rg_get_av_entry_1_svc(const rg_av_req_t &request)
{
    if (request.list_kind < 0 || request.list_kind >= static_cast<int>(std::size(lists)))
        return error_reply(IE_SYSTEM, ENOSYS, "Regd: List %d is not served here.", request.list_kind);
    const list_t &list = lists[request.list_kind];
    const av_list_t *entry = nullptr;
    switch (list.find(request.key, &entry)) {
    case table_answer::UNKNOWN:
        return error_reply(IE_INVALID, 0, "Regd: Invalid %s name: [%s].", list.what, request.key);
    case table_answer::NOT_LOADED:
        return error_reply(IE_STATE, 0, "Regd: Can't load the %s list.", list.what);
    case table_answer::FOUND:
        break;
    }
    // The entry is one of a table; without this copy the reply would carry all the entries after it.
    static av_list_t alone;
    alone = *entry;
    alone.next = nullptr;
    rg_res_t result = {};
    result.tag = RG_AV_ENTRY;
    result.records = &alone;
    return result;
}

// Sends the reply, or an RPC error if it cannot be encoded; a connection that has died needs neither.
static void answer(SVCXPRT *transport, rg_res_t result)
{
    if (!svc_sendreply(transport, reinterpret_cast<xdrproc_t>(xdr_rg_res_t), &result) &&
        SVC_STAT(transport) != XPRT_DIED)
        svcerr_systemerr(transport);
}

// Decodes the request, answers it and frees it, also what was decoded of a damaged one.
static void answer_av_entry(SVCXPRT *transport)
{
    const auto xdr_request = reinterpret_cast<xdrproc_t>(xdr_rg_av_req_t);
    rg_av_req_t request = {};
    if (svc_getargs(transport, xdr_request, &request))
        answer(transport, rg_get_av_entry_1_svc(request));
    else
        svcerr_decode(transport);
    svc_freeargs(transport, xdr_request, &request);
}

static bool_t xdr_no_data(XDR *, void *) noexcept
{
    return TRUE;
}

void registry_1(svc_req *request, SVCXPRT *transport) noexcept
{
    switch (request->rq_proc) {
    case NULLPROC:
        svc_sendreply(transport, reinterpret_cast<xdrproc_t>(xdr_no_data), nullptr);
        break;
    case rg_procedure(RG_REV):
        answer(transport, rg_rev_1_svc());
        break;
    case rg_procedure(RG_AV_ENTRY):
        answer_av_entry(transport);
        break;
    default:
        answer(transport, error_reply(IE_SYSTEM, ENOSYS, "Regd: Procedure %lu is not served here.",
                                      static_cast<u_long>(request->rq_proc)));
        break;
    }
}

}  // namespace faxtray
