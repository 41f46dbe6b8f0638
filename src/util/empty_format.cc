// Finds the conversions as printf(3) does; its manual page has their grammar in the same order.
#include "util/empty_format.h"

#include <cstring>

namespace faxtray {

// Where the conversion ends whose "%" is just before `at`, or null when it is none.
static const char *conversion_end(const char *at)
{
    at += strspn(at, "-0#+ '");       // flags
    at += strspn(at, "0123456789*");  // width
    if (*at == '.')                   // precision
        at += 1 + strspn(at + 1, "0123456789*");
    at += strspn(at, "hlLqjzt");  // length of the argument
    return *at && strchr("%diouxXeEfFgGaAcspn", *at) ? at + 1 : nullptr;
}

// What the conversion prints instead of its missing argument.
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
