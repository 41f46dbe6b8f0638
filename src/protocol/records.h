// records: what crosses the wire between inbox clients and the daemon (ONC RPC program 351229,
// version 1, TCP). Fields are in wire order; xdr_records encodes them.
//
// All strings are malloc'd, since the XDR routines free them with free().
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>

#include "config/av_list.h"

namespace faxtray {

inline constexpr u_long IN_PROG = 351229;  // 0x55BFD
inline constexpr u_long IN_VERS = 1;
inline constexpr u_int MAX_READ_SIZE = 262144;  // bytes a read request may ask for
inline constexpr int MAX_INDEX_COUNT = 100;     // faxes in a listing, at most

// A listing that would be longer, in bytes of its reply, ends early; clients ask on from its last fax. It has
// the size of two chunks, which the send buffers hold, so that a client that reads slowly blocks nobody. Two
// faxes always fit, or clients would not get past the first.
inline constexpr size_t max_listing = 2 * MAX_READ_SIZE;
inline constexpr size_t longest_listed_text = 64 * 1024;  // bytes of a fax's text that are listed

// Procedure numbers.
enum : u_long {
    TRAYD_NULL = 0,
    TRAYD_REV = 1,
    GET_INDEX = 2,
    COMMIT_INDEX = 3,
    GET_FAX_INFO = 4,
    GET_FAX = 5,
    COMMIT_FAX = 6,
    DELIVER_FAX = 7,
    GET_UI = 8,
    GET_FAX_COUNT = 9,
    GET_DF = 10,
    GET_STATUS = 11,
    TRAYD_SHUTDOWN = 12,
    GET_DF_INDEX = 13,
    GET_DF_FAX_INFO = 14,
    GET_DF_FAX_COUNT = 15,
    COMMIT_DF_INDEX = 16,
    GET_DF_FAX = 17,
    COMMIT_DF_FAX = 18,
};

// Codes of err_t.
enum : int {
    IE_BAD_HOW = 3,
    IE_BAD_RECIPIENT = 5,  // unknown inbox or recipient
    IE_BAD_PASSWORD = 8,
    IE_SEND_FAILED = 9,
    IE_GROUP_SEND_FAILED = 10,
    IE_INVALID = 11,    // unknown name or fax id
    IE_NOT_DF = 12,     // the caller is not the inbox's designated forwarder
    IE_UNCHANGED = 13,  // since the check value the client sent
    IE_STALE = 18,      // the user's entry has changed since the client saw it
    IE_SYSTEM = 19,     // with sys_errno
    IE_STATE = 21,      // the lists could not be loaded or brought up to date
};

using faxid_t = u_int;

struct pw_req_t {  // the caller's identity
    char *user;    // of a forwarder's request, the forwarder
    char *password;
    char *reserved_str;  // this and the next are carried along and never read
    int reserved_int;
    u_int check_value;  // of the user's entry as last seen; 0: no check
};

struct index_req_t {
    pw_req_t *pw;
    int faxid;
    int how;  // 1 forward, 0 backward
    int count;
    u_int check_value;  // of the index as last seen; 0: always answer
};

struct df_index_req_t {  // as index_req_t, for an incoming inbox
    pw_req_t *pw;
    char *inbox;
    int faxid;
    int how;
    int count;
    u_int check_value;
};

struct df_info_req_t {
    pw_req_t *pw;
    char *inbox;  // handle of an incoming inbox, here and below
};

struct client_fax_req_t {
    pw_req_t *pw;
    faxid_t faxid;
    u_int size;    // bytes wanted
    u_int offset;  // bytes from the file's start
};

struct df_fax_req_t {
    pw_req_t *pw;
    char *inbox;
    faxid_t faxid;
    u_int size;
    u_int offset;
};

struct client_commit_req_t {
    pw_req_t *pw;
    faxid_t faxid;
};

struct df_commit_req_t {
    pw_req_t *pw;
    char *inbox;
    faxid_t faxid;
};

struct client_deliver_req_t {
    pw_req_t *pw;
    char *inbox;
    faxid_t faxid;
    char *recipients;  // names, separated by commas
};

struct client_ui_req_t {
    pw_req_t *pw;
    char *ui_str1;  // this and the next three are carried along and never read
    int ui_int1;
    int ui_int2;
    char *ui_str2;
    u_int check_value;  // of the recipients as last seen; 0: always answer
};

struct ui_entry_t {  // one selectable recipient
    char *name;
    char *label;  // what people are shown
    int flag;     // 1 for a group
    ui_entry_t *next;
};

struct ui_list_t {
    u_int check_value;
    ui_entry_t *head;
};

struct file_info_t {  // one fax
    char *name;       // in the inbox directory; never null, as the next three
    char *sender_fax;
    char *subaddress;
    char *pwd_frame;
    int pages;   // -1: not known
    int is_fax;  // 1: the file begins with a fax header
    faxid_t faxid;
    u_int size;    // bytes
    time_t mtime;  // seconds; an unsigned int on the wire
};

struct file_node_t : file_info_t {
    file_node_t *next;
};

struct file_list_t {
    u_int check_value;
    file_node_t *head;
};

struct rev_t {
    int major;
    int minor;
    char *revision;
};

struct err_t {
    int code;
    int sys_errno;  // or 0
    char *message;
};

enum res_type_t : int {
    RES_REV = 0,
    RES_INDEX = 1,
    RES_COMMIT_INDEX = 2,
    RES_FAX_INFO = 3,
    RES_FAX = 4,
    RES_COMMIT_FAX = 5,
    RES_DELIVER = 6,
    RES_UI = 7,
    RES_FAX_COUNT = 8,
    RES_DF = 9,
    RES_STATUS = 10,
    RES_SHUTDOWN = 11,
    RES_DF_INDEX = 12,
    RES_DF_FAX_INFO = 13,
    RES_DF_FAX_COUNT = 14,
    RES_COMMIT_DF_INDEX = 15,
    RES_DF_FAX = 16,
    RES_COMMIT_DF_FAX = 17,
    RES_ERROR = 18,
};

struct fax_data_t {
    u_int length;
    char *bytes;
};

struct in_res_t {  // every procedure's result
    res_type_t res_type;
    union {
        rev_t rev;           // RES_REV
        file_list_t *index;  // RES_INDEX, RES_DF_INDEX
        file_info_t *info;   // RES_FAX_INFO, RES_DF_FAX_INFO: null when there is no fax
        fax_data_t fax;      // RES_FAX, RES_DF_FAX
        ui_list_t ui;        // RES_UI
        u_int count;         // RES_FAX_COUNT, RES_DF_FAX_COUNT
        av_list_t *av;       // RES_DF, RES_STATUS: null when there is none
        err_t err;           // RES_ERROR and any other
    };
};

}  // namespace faxtray
