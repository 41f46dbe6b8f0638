// Decided from the entry alone.
#include "config/user_settings.h"

#include <cstring>

#include "config/attributes.h"
#include "config/munged_name.h"
#include "util/text.h"

namespace faxtray {

bool is_special_name(const char *name)
{
    return munged_strcmp(name, "default") == 0 || munged_strcmp(name, "admin") == 0;
}

bool takes_inbox_delivery(const av_list_t *user)
{
    const char *method = av_getv(user, as_get_attr(AS_DELIVERY_METHOD));
    return method && strstr(method, as_get_value_string(AS_DELIVERY_METHOD, IV_DELIVERY_METHOD_FAXTRAY));
}

bool takes_forwarded_faxes(const av_list_t *user)
{
    const char *answer = av_getv(user, "fax_forwarding");
    return answer && *answer && strchr("YyTt", *answer);
}

char *cut_keyword(char *method)
{
    char *keyword = method + strspn(method, ":");
    keyword[strcspn(keyword, ":")] = '\0';
    rm_trailing_whitespace(keyword);
    return keyword;
}

const char *command_text(const char *method)
{
    const char *colon = strchr(method, ':');
    return colon ? colon + 1 : nullptr;
}

}  // namespace faxtray
