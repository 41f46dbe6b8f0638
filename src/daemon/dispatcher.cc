// The table of procedures, and the steps that every call goes through.
#include "daemon/dispatcher.h"

#include <arpa/inet.h>
#include <syslog.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <type_traits>

#include "daemon/deliver_procedure.h"
#include "daemon/forwarder_procedures.h"
#include "daemon/request_checks.h"
#include "daemon/retrieval_procedures.h"
#include "daemon/status_procedures.h"
#include "inbox/inbox_lists.h"
#include "log/access_log.h"
#include "protocol/xdr_records.h"
#include "registry/regd_client.h"
#include "util/text.h"

namespace faxtray {

namespace {

// A client's address.
struct peer_t {
    char address[INET_ADDRSTRLEN] = "unknown", port[8] = "";
};

}  // namespace

// By hand: getnameinfo(3) takes longer than a NULL call.
static peer_t peer_of(SVCXPRT *transport)
{
    peer_t peer;
    const auto *address = static_cast<const sockaddr_in *>(svc_getrpccaller(transport)->buf);
    inet_ntop(AF_INET, &address->sin_addr, peer.address, sizeof peer.address);
    *std::to_chars(peer.port, std::end(peer.port), ntohs(address->sin_port)).ptr = '\0';
    return peer;
}

// Tells the access log who asks for what. A user is named as in the user list, however the client spells it.
static void note_request(const svc_req &request, const pw_req_t *pw, unsigned fax_id)
{
    const peer_t peer = peer_of(request.rq_xprt);
    const char *claimed = name_of(pw);
    const av_list_t *entry = is_empty(claimed) ? nullptr : User_list.users.get(claimed);
    access_request({time(nullptr), peer.address, peer.port, entry ? entry->key : claimed,
                    static_cast<unsigned>(request.rq_proc), fax_id});
}

namespace {

// How a procedure's argument is decoded, and the function that answers it.
struct procedure_t {
    xdrproc_t xdr_argument;
    in_res_t *(*body)(void *argument, svc_req *request);
};

// A table row. The types are checked here, once; from then on arguments are void pointers, as libtirpc wants.
// Every argument begins with the caller's identity, and some name a fax.
template <class Record, bool_t (*Xdr)(XDR *, Record *) noexcept,
          in_res_t *(*Body)(Record *, svc_req *) noexcept>
procedure_t takes()
{
    return {reinterpret_cast<xdrproc_t>(Xdr), [](void *argument, svc_req *request) {
                auto *record = static_cast<Record *>(argument);
                if constexpr (std::is_same_v<Record, pw_req_t *>)
                    note_request(*request, *record, 0);
                else if constexpr (requires { record->faxid; })
                    note_request(*request, record->pw, static_cast<unsigned>(record->faxid));
                else
                    note_request(*request, record->pw, 0);
                return Body(record, request);
            }};
}

// The row of a procedure that takes only the caller's identity. It may be absent; the procedure then gets
// null.
template <in_res_t *(*Body)(pw_req_t *, svc_req *) noexcept>
in_res_t *of_identity(pw_req_t **pw, svc_req *request) noexcept
{
    return Body(*pw, request);
}
template <in_res_t *(*Body)(pw_req_t *, svc_req *) noexcept> procedure_t takes_identity()
{
    return takes<pw_req_t *, xdr_identity, of_identity<Body>>();
}

// Memory for any argument in the table; only its size and alignment matter.
union argument_t {
    pw_req_t *identity;
    index_req_t index;
    df_index_req_t df_index;
    df_info_req_t df_info;
    client_fax_req_t fax;
    df_fax_req_t df_fax;
    client_commit_req_t commit;
    df_commit_req_t df_commit;
    client_deliver_req_t deliver;
    client_ui_req_t ui;
};

}  // namespace

// libtirpc declares xdr_void() without parameters; the cast through void (*)() keeps -Wcast-function-type
// quiet.
static const xdrproc_t no_data = reinterpret_cast<xdrproc_t>(reinterpret_cast<void (*)()>(xdr_void));

// Indexed by procedure number. Procedure 0 is answered before the table is used.
static const procedure_t procedures[] = {
    {nullptr, nullptr},
    {no_data, trayd_rev_1_svc},
    takes<index_req_t, xdr_index_req_t, get_index_1_svc>(),
    takes_identity<commit_index_1_svc>(),
    takes_identity<get_fax_info_1_svc>(),
    takes<client_fax_req_t, xdr_client_fax_req_t, get_fax_1_svc>(),
    takes<client_commit_req_t, xdr_client_commit_req_t, commit_fax_1_svc>(),
    takes<client_deliver_req_t, xdr_client_deliver_req_t, deliver_fax_1_svc>(),
    takes<client_ui_req_t, xdr_client_ui_req_t, get_ui_1_svc>(),
    takes_identity<get_fax_count_1_svc>(),
    takes_identity<get_df_1_svc>(),
    takes_identity<get_status_1_svc>(),
    takes_identity<trayd_shutdown_1_svc>(),
    takes<df_index_req_t, xdr_df_index_req_t, get_df_index_1_svc>(),
    takes<df_info_req_t, xdr_df_info_req_t, get_df_fax_info_1_svc>(),
    takes<df_info_req_t, xdr_df_info_req_t, get_df_fax_count_1_svc>(),
    takes<df_info_req_t, xdr_df_info_req_t, commit_df_index_1_svc>(),
    takes<df_fax_req_t, xdr_df_fax_req_t, get_df_fax_1_svc>(),
    takes<df_commit_req_t, xdr_df_commit_req_t, commit_df_fax_1_svc>(),
};
static_assert(std::size(procedures) == COMMIT_DF_FAX + 1);

void _msgout(const char *text)
{
    syslog(LOG_ERR, "%s", text);
}

// Sends `result`. If it cannot be encoded, the client gets an RPC error reply; on a dead connection there is
// nobody to send one to.
static void send_result(SVCXPRT *transport, in_res_t *result)
{
    if (!svc_sendreply(transport, reinterpret_cast<xdrproc_t>(xdr_in_res_t), result) &&
        SVC_STAT(transport) != XPRT_DIED)
        svcerr_systemerr(transport);
}

void in_prog_1(svc_req *request, SVCXPRT *transport) noexcept
{
    if (request->rq_proc == TRAYD_NULL) {
        svc_sendreply(transport, no_data, nullptr);
        return;
    }
    if (request->rq_proc >= std::size(procedures)) {
        svcerr_noproc(transport);
        return;
    }
    const procedure_t &procedure = procedures[request->rq_proc];

    // All zero, so that svc_freeargs frees only what was decoded.
    argument_t argument;
    memset(&argument, 0, sizeof argument);
    if (!svc_getargs(transport, procedure.xdr_argument, &argument)) {
        svcerr_decode(transport);
        // libtirpc does not free the part that was decoded before the error.
        svc_freeargs(transport, procedure.xdr_argument, &argument);
        return;
    }
    in_res_t *result = procedure.body(&argument, request);
    // A registry that hangs is waited for once a request; the next request asks it again.
    regd_forget_timeout();
    if (result)
        send_result(transport, result);
    if (!svc_freeargs(transport, procedure.xdr_argument, &argument)) {
        _msgout("unable to free arguments");
        exit(1);
    }
}

}  // namespace faxtray
