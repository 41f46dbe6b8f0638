// regd_requests: what crosses the wire between the registry daemon and its clients (ONC RPC over TCP,
// program REGD_PROG_BASE plus the queue number, version 1), and functions that make requests. Fields are in
// wire order; xdr_regd encodes them.
//
// A request owns all it holds, in malloc'd memory. new_*_req copies what it is given: absent credentials stay
// absent, a null text becomes "", a null list stays absent. When out of memory it returns null, with messages
// on standard error that begin with its own name. free_*_req frees all; null is allowed.
//
// All makers but new_av_req serve calls that no program here makes (see regd_client).
#pragma once

#include "protocol/pw_req.h"
#include "protocol/records.h"

namespace faxtray {

inline constexpr u_long REGD_PROG_BASE = 0x55BBC;  // plus the queue number, which is at least 1
inline constexpr u_long REGD_VERS = 1;

// The tag of a reply: the call's own of these for success, any other for an error. The number of the
// procedure is one more than its tag.
enum rg_tag_t : int {
    RG_REV = 0,
    RG_STATS = 1,
    RG_UPDATE = 2,
    RG_SHUTDOWN = 3,
    RG_NEW_FAXID = 4,
    RG_Q_STAT = 5,
    RG_JOB_INFO = 6,
    RG_SET_JOB_INFO = 7,
    RG_DELETE_JOB = 8,
    RG_VALID_PN = 9,
    RG_HISTORY = 10,
    RG_TIME = 11,
    RG_AV_ENTRY = 12,
    RG_AV_LIST = 13,
    RG_H_STAT = 14,
    RG_SUSPEND_JOB = 15,
    RG_DF_BY_DIR = 18,
    RG_LIST_UPDATE_TIME = 19,
    RG_LOCK_LIST = 20,
    RG_UPDATE_ENTRY = 21,
    RG_DELETE_ENTRY = 22,
    RG_COMMIT_LIST = 23,
    RG_ROLLBACK_LIST = 24,
    RG_ERROR = 25,  // the error tag that our faxregd sends
};

inline constexpr u_long rg_procedure(rg_tag_t tag)
{
    return static_cast<u_long>(tag) + 1;
}

enum rg_list_kind_t : int { RG_USERS = 0, RG_MODEMS = 1, RG_FORWARDERS = 2, RG_CONF = 3 };

// What a reply with a given tag carries.
enum class rg_arm_t {
    NOTHING,
    NUMBER,   // u_int
    REV,      // rev_t
    RECORDS,  // optional av_list_t: one entry or a table
    ERROR,    // err_t
};

struct rg_res_t {  // every procedure's result
    int tag;       // selects the arm, see rg_arm()
    union {
        u_int number;
        rev_t rev;
        av_list_t *records;
        err_t err;
    };
};

struct rg_q_update_req_t {
    pw_req_t *pw;
    av_list_t *settings;  // of the queue
};

struct rg_job_req_t {  // information, history, deletion
    pw_req_t *pw;
    faxid_t faxid;
};

struct rg_job_update_req_t {
    pw_req_t *pw;
    faxid_t faxid;
    av_list_t *settings;  // of the job
};

struct rg_job_suspend_req_t {
    pw_req_t *pw;
    faxid_t faxid;
    int suspend;  // 1 suspend, 0 resume
};

struct rg_av_req_t {  // one record by key
    pw_req_t *pw;
    int list_kind;
    char *key;
    int flag;  // 1 for users and forwarders, 0 for modems; its meaning is the registry daemon's
};

struct rg_av_list_req_t {  // a whole list
    pw_req_t *pw;
    int list_kind;
    int flag;
};

struct rg_get_df_by_dir_req_t {
    pw_req_t *pw;
    char *directory;  // an incoming one, absolute
};

struct rg_list_req_t {  // lock, commit, roll back
    pw_req_t *pw;
    int list_kind;
};

struct rg_update_av_entry_req_t {
    pw_req_t *pw;
    int list_kind;
    av_list_t *entry;
};

struct rg_delete_av_entry_req_t {
    pw_req_t *pw;
    int list_kind;
    char *key;
};

rg_q_update_req_t *new_q_update_req(pw_req_t *pw, const av_list_t *settings);
rg_job_req_t *new_job_info_req(pw_req_t *pw, faxid_t faxid);
rg_job_update_req_t *new_job_update_req(pw_req_t *pw, faxid_t faxid, const av_list_t *settings);
rg_job_req_t *new_job_delete_req(pw_req_t *pw, faxid_t faxid);
rg_job_suspend_req_t *new_job_suspend_req(pw_req_t *pw, faxid_t faxid, int suspend);
rg_av_req_t *new_av_req(pw_req_t *pw, int list_kind, const char *key, int flag);
rg_av_list_req_t *new_av_list_req(pw_req_t *pw, int list_kind, int flag);
rg_get_df_by_dir_req_t *new_get_df_by_dir_req(pw_req_t *pw, const char *directory);
rg_list_req_t *new_rg_lock_av_list_req(pw_req_t *pw, int list_kind);
rg_update_av_entry_req_t *new_rg_update_av_entry_req(pw_req_t *pw, int list_kind, const av_list_t *entry);
rg_delete_av_entry_req_t *new_rg_delete_av_entry_req(pw_req_t *pw, int list_kind, const char *key);
rg_list_req_t *new_rg_commit_av_list_req(pw_req_t *pw, int list_kind);
rg_list_req_t *new_rg_rollback_av_list_req(pw_req_t *pw, int list_kind);

void free_q_update_req(rg_q_update_req_t *request);
void free_job_info_req(rg_job_req_t *request);
void free_job_update_req(rg_job_update_req_t *request);
void free_job_delete_req(rg_job_req_t *request);
void free_job_suspend_req(rg_job_suspend_req_t *request);
void free_av_req(rg_av_req_t *request);
void free_av_list_req(rg_av_list_req_t *request);
void free_get_df_by_dir_req(rg_get_df_by_dir_req_t *request);
void free_rg_lock_av_list_req(rg_list_req_t *request);
void free_rg_update_av_entry_req(rg_update_av_entry_req_t *request);
void free_rg_delete_av_entry_req(rg_delete_av_entry_req_t *request);
void free_rg_commit_av_list_req(rg_list_req_t *request);
void free_rg_rollback_av_list_req(rg_list_req_t *request);

}  // namespace faxtray
