// A complaint may hold two paths at their longest, which strangers have named.
#include "inbox/scan_complaints.h"

#include <sys/param.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>

#include "util/trace.h"

namespace faxtray {

void scan_complaints_t::add(const char *program, const char *format, ...)
{
    char text[2 * MAXPATHLEN + 256];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    std::string line;
    for (const char *c = text; *c; c++) {
        const auto byte = static_cast<unsigned char>(*c);
        char shown[8];
        snprintf(shown, sizeof shown, iscntrl(byte) ? "\\x%02X" : "%c", byte);
        line += shown;
    }
    trprintf("%s\n", line.c_str());
    log_ += (*program ? std::string(program) + ": " : "") + line + "\n";
}

bool scan_complaints_t::conclude(std::string &last)
{
    const bool again = log_ == last && !last.empty() && !in_log_;
    if (!again)
        fputs(log_.c_str(), stderr);
    last.swap(log_);
    return again;
}

}  // namespace faxtray
