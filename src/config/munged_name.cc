// The loose comparison of names, and a key by which an ordered index can replace it.
#include "config/munged_name.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace faxtray {

static bool is_skipped(char ch)
{
    unsigned char byte = static_cast<unsigned char>(ch);
    return isspace(byte) || ispunct(byte);
}

static signed char folded(char ch)
{
    return static_cast<signed char>(ch >= 'A' && ch <= 'Z' ? ch - 'A' + 'a' : ch);
}

static int difference(char a, char b)
{
    return static_cast<signed char>(a) - static_cast<signed char>(b);
}

int munged_strcmp(const char *a, const char *b)
{
    // Kept: the walk stops as soon as one name ends, whatever is left of the other. Log-ins depend on it.
    while (*a && *b) {
        if (is_skipped(*a)) {
            a++;
        } else if (is_skipped(*b)) {
            b++;
        } else {
            if (folded(*a) != folded(*b))
                return folded(*a) - folded(*b);
            a++;
            b++;
        }
    }
    return difference(*a, *b);
}

bool equals_itself(const char *name)
{
    return !*name || !is_skipped(name[strlen(name) - 1]);
}

std::string munged_key(const char *name)
{
    std::string key;
    for (const char *p = name; *p; p++)
        if (!is_skipped(*p))
            key.push_back(static_cast<char>(folded(*p)));
    // munged_strcmp stops when the other name ends, even if skipped characters remain here; such a name sorts
    // right after its letters and before any longer name.
    if (!equals_itself(name))
        key.push_back('\0');
    return key;
}

bool munged_less::operator()(const std::string &a, const std::string &b) const noexcept
{
    // c_str() ends in a 0, which may be compared too.
    size_t n = std::min(a.size(), b.size()) + 1;
    for (size_t i = 0; i < n; i++)
        if (a.c_str()[i] != b.c_str()[i])
            return difference(a.c_str()[i], b.c_str()[i]) < 0;
    return a.size() < b.size();
}

}  // namespace faxtray
