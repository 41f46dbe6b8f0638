// settings: what start-up decides once and everybody reads.
#pragma once

#include <cstdint>

namespace faxtray {

extern char dvWork_dir[256];        // -W: log, exception log and trace files live here
extern const char *Exec_dir;        // no option sets it
extern const char *Incoming_dir;    // no option sets it
extern char *modem_info;            // -M: path of MODEMS.info; null: the loader looks for it
extern char *user_info;             // -U: path of USER_LIST.info; null: the loader looks for it
extern int32_t Update_slop;         // -d: seconds a file must have been still to be listed
extern int Debug;                   // -D
extern int Regd_challenged;         // -b: backward compatibility, nothing is delivered
extern char dvLog_callbacks[1024];  // -L: command told of every log entry; empty: none
extern const char *Program;         // argv[0] of this process, for messages

}  // namespace faxtray
