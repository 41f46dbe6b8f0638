// settings: what the programs decide once, at start-up, and every room may read. Nothing changes them later.
#pragma once

#include <cstdint>

namespace faxtray {

extern char dvWork_dir[256];        // -W: the directory of log, exception log, trace and temporary files
extern const char *Exec_dir;        // where TRACES is looked for after $ONDRIXHOME; no option sets it
extern const char *Incoming_dir;    // for the fax system's other programs: none here reads or sets it
extern char *modem_info;            // -M: path of MODEMS.info; null: found by the loader
extern char *user_info;             // -U: path of USER_LIST.info; null: found by the loader
extern int32_t Update_slop;         // -d: seconds for which a file must have been still to be listed
extern int Debug;                   // -D: debugging; a crash is not caught, so it dumps core
extern int Regd_challenged;         // -b: there is no faxregd; nothing is delivered
extern char dvLog_callbacks[1024];  // -L: command run for each entry of the exception log; "": none
extern const char *Program;         // argv[0], for messages

}  // namespace faxtray
