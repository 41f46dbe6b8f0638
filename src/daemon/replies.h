// replies: filling a procedure's result record.
//
// Each procedure owns one static in_res_t and hands it to these functions, which return it. Messages
// stand in the one shared buffer, so a result holds until the next request is handled.
#pragma once

#include "protocol/records.h"

namespace faxtray {

extern char buf[2048];  // the message of the last error reply; longer ones are cut

// An answer without data.
in_res_t *reply(in_res_t &result, res_type_t type);

// RES_ERROR with the formatted message; `sys_errno` is an errno, or 0 where none applies.
in_res_t *error_reply(in_res_t &result, int code, int sys_errno, const char *format, ...)
    __attribute__((format(printf, 4, 5)));
in_res_t *error_reply(in_res_t &result, const err_t &error);  // the record as it stands

}  // namespace faxtray
