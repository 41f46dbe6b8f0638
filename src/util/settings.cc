// The values that hold without any option.
#include "util/settings.h"

namespace faxtray {

char dvWork_dir[256] = "work";
const char *Exec_dir = ".";
const char *Incoming_dir = "incoming";
char *modem_info = nullptr;
char *user_info = nullptr;
int32_t Update_slop = 60;
int Debug = 0;
int Regd_challenged = 0;
char dvLog_callbacks[1024] = "";
const char *Program = "faxtrayd";

}  // namespace faxtray
