// Groups need nothing of their own: their members do.
#include "check/needs.h"

#include <cstdlib>
#include <cstring>

#include "check/user_checks.h"
#include "config/attributes.h"
#include "config/user_settings.h"
#include "util/access.h"
#include "util/site_programs.h"
#include "util/text.h"

namespace faxtray {

bool is_command(const std::string &name)
{
    if (name.find('/') != name.npos)
        return execution_error(name.c_str()) == 0;
    const char *path = getenv("PATH");
    for (const char *dir = path ? path : "/usr/bin:/bin";;) {
        const size_t n = strcspn(dir, ":");
        if (execution_error((std::string(dir, n) + "/" + name).c_str()) == 0)
            return true;
        if (!dir[n])
            return false;
        dir += n + 1;
    }
}

static std::string tiff_converter_path()
{
    const char *home = getenv("ONDRIXHOME");
    return std::string(home ? home : ".") + "/" + tiff_converter;
}

std::vector<std::string> converters_of(int format)
{
    if (format == IV_FILE_FORMAT_TIFF_F)
        return {tiff_converter_path()};
    if (format == IV_FILE_FORMAT_PDF)
        return {postscript_converter, pdf_converter};
    return {};
}

static bool wants_notices(const av_list_t *user)
{
    const char *when = av_getv(user, as_get_attr(AS_WHEN_TO_NOTIFY));
    return !is_empty(when) && !strstr(when, "never") &&
           !is_empty(av_getv(user, as_get_attr(AS_EMAIL_ADDRESS)));
}

void add_needs(const av_list_t *user, needs_t &needs)
{
    if (is_group(user))
        return;
    needs.notices = needs.notices || wants_notices(user);
    const int method = delivery_of(user);
    if (method < 0)
        return;
    needs.mail = needs.mail || (method != IV_DELIVERY_METHOD_EXEC && method != IV_DELIVERY_METHOD_FAXTRAY);
    needs.short_names =
        needs.short_names || as_get_value_handle_av(AS_DELIVERY_NAMING, user) == IV_DELIVERY_NAMING_8_3;
    needs.formats.insert(as_get_value_handle_av(AS_DELIVERY_FILE_FORMAT, user));
}

}  // namespace faxtray
