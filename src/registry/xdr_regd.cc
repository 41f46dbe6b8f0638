// The registry protocol's records in XDR form, composed of those of the inbox protocol. Every request begins
// with the caller's identity as optional data.
#include "registry/xdr_regd.h"

#include "protocol/xdr_records.h"

namespace faxtray {

bool_t xdr_rg_q_update_req_t(XDR *xdrs, rg_q_update_req_t *request) noexcept
{
    return xdr_pw(xdrs, &request->pw) && xdr_av_entry(xdrs, &request->settings);
}

bool_t xdr_rg_job_req_t(XDR *xdrs, rg_job_req_t *request) noexcept
{
    return xdr_pw(xdrs, &request->pw) && xdr_faxid_t(xdrs, &request->faxid);
}

bool_t xdr_rg_job_update_req_t(XDR *xdrs, rg_job_update_req_t *request) noexcept
{
    return xdr_pw(xdrs, &request->pw) && xdr_faxid_t(xdrs, &request->faxid) &&
           xdr_av_entry(xdrs, &request->settings);
}

bool_t xdr_rg_job_suspend_req_t(XDR *xdrs, rg_job_suspend_req_t *request) noexcept
{
    return xdr_pw(xdrs, &request->pw) && xdr_faxid_t(xdrs, &request->faxid) &&
           xdr_int(xdrs, &request->suspend);
}

bool_t xdr_rg_av_req_t(XDR *xdrs, rg_av_req_t *request) noexcept
{
    return xdr_pw(xdrs, &request->pw) && xdr_int(xdrs, &request->list_kind) &&
           xdr_text(xdrs, &request->key) && xdr_int(xdrs, &request->flag);
}

bool_t xdr_rg_av_list_req_t(XDR *xdrs, rg_av_list_req_t *request) noexcept
{
    return xdr_pw(xdrs, &request->pw) && xdr_int(xdrs, &request->list_kind) && xdr_int(xdrs, &request->flag);
}

bool_t xdr_rg_get_df_by_dir_req_t(XDR *xdrs, rg_get_df_by_dir_req_t *request) noexcept
{
    return xdr_pw(xdrs, &request->pw) && xdr_text(xdrs, &request->directory);
}

bool_t xdr_rg_list_req_t(XDR *xdrs, rg_list_req_t *request) noexcept
{
    return xdr_pw(xdrs, &request->pw) && xdr_int(xdrs, &request->list_kind);
}

bool_t xdr_rg_update_av_entry_req_t(XDR *xdrs, rg_update_av_entry_req_t *request) noexcept
{
    return xdr_pw(xdrs, &request->pw) && xdr_int(xdrs, &request->list_kind) &&
           xdr_av_entry(xdrs, &request->entry);
}

bool_t xdr_rg_delete_av_entry_req_t(XDR *xdrs, rg_delete_av_entry_req_t *request) noexcept
{
    return xdr_pw(xdrs, &request->pw) && xdr_int(xdrs, &request->list_kind) && xdr_text(xdrs, &request->key);
}

// Tags 16 and 17 are not in use, and so count as errors like every unknown one.
rg_arm_t rg_arm(int tag)
{
    switch (tag) {
    case RG_REV:
        return rg_arm_t::REV;
    case RG_NEW_FAXID:
    case RG_VALID_PN:
    case RG_TIME:
    case RG_LIST_UPDATE_TIME:
        return rg_arm_t::NUMBER;
    case RG_STATS:
    case RG_Q_STAT:
    case RG_JOB_INFO:
    case RG_HISTORY:
    case RG_AV_ENTRY:
    case RG_AV_LIST:
    case RG_H_STAT:
    case RG_DF_BY_DIR:
        return rg_arm_t::RECORDS;
    case RG_UPDATE:
    case RG_SHUTDOWN:
    case RG_SET_JOB_INFO:
    case RG_DELETE_JOB:
    case RG_SUSPEND_JOB:
    case RG_LOCK_LIST:
    case RG_UPDATE_ENTRY:
    case RG_DELETE_ENTRY:
    case RG_COMMIT_LIST:
    case RG_ROLLBACK_LIST:
        return rg_arm_t::NOTHING;
    default:
        return rg_arm_t::ERROR;
    }
}

bool_t xdr_rg_res_t(XDR *xdrs, rg_res_t *result) noexcept
{
    if (!xdr_int(xdrs, &result->tag))
        return FALSE;
    switch (rg_arm(result->tag)) {
    case rg_arm_t::NOTHING:
        return TRUE;
    case rg_arm_t::NUMBER:
        return xdr_u_int(xdrs, &result->number);
    case rg_arm_t::REV:
        return xdr_rev_t(xdrs, &result->rev);
    case rg_arm_t::RECORDS:
        return xdr_av_entry(xdrs, &result->records);
    case rg_arm_t::ERROR:
        break;
    }
    return xdr_err_t(xdrs, &result->err);
}

}  // namespace faxtray
