// Finds the conversions as printf would; what they would print is a word each.
#include "util/empty_format.h"

#include <cstring>

namespace faxtray {

// The end of the conversion whose "%" stands before `at`, or null when it is none.
static const char *conversion_end(const char *at)
{
    at += strspn(at, "-0#+ '");
    at += strspn(at, "0123456789*");
    if (*at == '.')
        at += 1 + strspn(at + 1, "0123456789*");
    at += strspn(at, "hlLqjzt");
    return *at && strchr("%diouxXeEfFgGaAcspn", *at) ? at + 1 : nullptr;
}

static const char *empty_argument(char conversion)
{
    switch (conversion) {
    case '%':
        return "%";
    case 's':
        return "(null)";
    case 'p':
        return "(nil)";
    case 'c':
    case 'n':
        return "";
    default:
        return "0";
    }
}

std::string print_empty_format(const char *text)
{
    std::string printed;
    for (const char *at = text ? text : ""; *at;) {
        const char *end = *at == '%' ? conversion_end(at + 1) : nullptr;
        if (end)
            printed += empty_argument(end[-1]);
        else
            printed += *at;
        at = end ? end : at + 1;
    }
    return printed;
}

}  // namespace faxtray
