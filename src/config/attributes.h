// attributes: numbers for the enumerated settings of user entries and for their values, so that code can
// switch on numbers instead of comparing strings.
#pragma once

#include "config/av_list.h"

namespace faxtray {

// Attribute handles.
enum : int {
    AS_ADMIN_NOTIFY_LEVEL = 0,
    AS_ADMIN_EXCEPTION_VOLUME = 1,
    AS_DELIVERY_BODY_ENCODING = 2,
    AS_DELIVERY_FILE_FORMAT = 3,
    AS_ROUTING_NUMBER = 4,
    AS_DELIVERY_METHOD = 5,
    AS_DELIVERY_NAMING = 6,
    AS_EMAIL_ADDRESS = 7,
    AS_DELIVERY_DIR = 8,
    AS_DELIVERY_DIR_ROOT = 9,
    AS_GROUP = 10,
    AS_HOW_TO_NOTIFY = 11,
    AS_WHEN_TO_NOTIFY = 12,
    AS_SERVER_MAIL_FROM = 13,
};

// Value handles, unique across attributes.
enum : int {
    IV_NOTIFY_LEVEL_ERROR = 0,
    IV_NOTIFY_LEVEL_FATAL = 1,
    IV_NOTIFY_LEVEL_NONE = 2,
    IV_NOTIFY_LEVEL_NOTICE = 3,
    IV_NOTIFY_LEVEL_WARNING = 4,
    IV_BODY_ENCODING_BASE64 = 5,
    IV_BODY_ENCODING_UUENCODE = 6,
    IV_FILE_FORMAT_G3 = 7,
    IV_FILE_FORMAT_G3MH = 8,
    IV_FILE_FORMAT_G3MR = 9,
    IV_FILE_FORMAT_G4 = 10,
    IV_FILE_FORMAT_TIFF_F = 11,
    IV_FILE_FORMAT_PDF = 12,
    IV_DELIVERY_METHOD_EMAIL_BODY = 13,
    IV_DELIVERY_METHOD_EXEC = 14,
    IV_DELIVERY_METHOD_FAXTRAY = 15,
    IV_DELIVERY_METHOD_MIMEMAIL_ATTACH = 16,
    IV_DELIVERY_METHOD_SUNMAIL_ATTACH = 17,
    IV_DELIVERY_NAMING_8_3 = 18,
    IV_DELIVERY_NAMING_POSIX = 19,
    IV_HOW_TO_NOTIFY_EMAIL = 20,
    IV_HOW_TO_NOTIFY_EXEC = 21,
    IV_WHEN_TO_NOTIFY_NEVER = 22,
    IV_WHEN_TO_NOTIFY_FAX_EXCEPTION = 23,
    IV_WHEN_TO_NOTIFY_FAX_FAILURES = 24,
    IV_WHEN_TO_NOTIFY_INCOMING_FAILURES_ONLY = 25,
    IV_WHEN_TO_NOTIFY_FAX_INCOMING = 26,
    IV_WHEN_TO_NOTIFY_FAX_OUTGOING = 27,
};

struct as_value_t {
    int attr;           // attribute handle
    const char *value;  // as written in USER_LIST.info
    int handle;
};

struct as_attr_t {
    int attr;
    const char *name;
    int default_value;  // value handle, -1 for none. For the fax system's other programs; not read here
    const as_value_t *values;  // the first of its rows, which are sorted by value; null for free text
};

// Returns 1. The tables need no preparation. For the fax system's other programs; none here calls it, nor
// as_get_entry_by_string or as_get_attr_handle.
int as_init_lookup();

// Look-ups are exact and case-sensitive. They return null, or -1 for a handle, when nothing is found. Rows
// and texts belong to the tables and are never freed.
const as_attr_t *as_get_entry(int attr);
const as_attr_t *as_get_entry_by_string(const char *name);
int as_get_attr_handle(const char *name);
const char *as_get_attr(int attr);
int as_get_value_handle(int attr, const char *value);
const char *as_get_value_string(int attr, int value);

// The handle of that attribute's value in `list`, and its node there (the list's own).
int as_get_value_handle_av(int attr, const av_list_t *list);
av_node_t *as_get_av_node(int attr, const av_list_t *list);

}  // namespace faxtray
