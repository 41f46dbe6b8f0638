// Takes mail targets apart. Nothing is decoded or unescaped: the address and the values are the text as
// written.
#include "deliver/mail_target.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "util/text.h"

namespace faxtray {

static constexpr char scheme_end[] = "://";

const char *get_mail_address(const char *target)
{
    static char address[256];
    // Any scheme will do: which form it asks for is for the caller to find out.
    const char *end = target ? strstr(target, scheme_end) : nullptr;
    if (!is_empty(target) && !end)
        return target;

    // Kept: the address is cut at 255 characters before its parameters are dropped.
    snprintf(address, sizeof address, "%s", end ? end + strlen(scheme_end) : "");
    address[strcspn(address, ";")] = '\0';
    if (*address)
        return address;
    fprintf(stderr, "get_mail_address: Null user address\n");
    return nullptr;
}

// Steps over the quote in front of the value at `*value`, if there is one, and returns the value's length.
static size_t value_length(const char **value)
{
    const char quote[] = {**value, '\0'};
    bool quoted = *quote == '"' || *quote == '\'';
    if (quoted)
        ++*value;
    return strcspn(*value, quoted ? quote : ";");
}

int get_mail_param(const char *target, const char *attribute, char *value, size_t size)
{
    if (is_empty(target)) {
        fprintf(stderr, "get_mail_param: Null user address\n");
        return 0;
    }
    if (is_empty(attribute)) {
        fprintf(stderr, "get_mail_param: Null parameter attribute\n");
        return 0;
    }
    // The "=" is part of what is searched for, so that "name" does not find "names".
    std::string mark = std::string(";") + attribute + "=";
    const char *found = strstr(target, mark.c_str());
    if (!found)
        return 0;
    found += mark.size();
    size_t length = value_length(&found);
    if (value && size > 0)
        snprintf(value, size, "%.*s", static_cast<int>(length), found);
    return 1;
}

static int begins_with(const char *target, const char *scheme)
{
    return target && strncmp(target, scheme, strlen(scheme)) == 0;
}

int is_mailto(const char *target)
{
    return begins_with(target, "mailto://");
}

int is_mailtosun(const char *target)
{
    return begins_with(target, "mailtosun://");
}

int is_mailtiffto(const char *target)
{
    return begins_with(target, "mailtiffto://");
}

int is_mailtifftosun(const char *target)
{
    return begins_with(target, "mailtifftosun://");
}

}  // namespace faxtray
