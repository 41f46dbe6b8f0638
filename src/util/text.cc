#include "util/text.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace faxtray {

int split(const char *text, char ch, char ***fields)
{
    if (!text) {
        errno = EINVAL;
        return -1;
    }
    size_t count = 1;
    for (const char *p = text; *p; p++)
        count += *p == ch;
    if (!fields)
        return static_cast<int>(count);

    // One block, so that the caller has one thing to free: the pointers, their null, then the copy that they
    // point into.
    size_t size = strlen(text) + 1;
    void *block = malloc((count + 1) * sizeof(char *) + size);
    if (!block)
        return -1;
    char **pieces = static_cast<char **>(block);
    char *piece = static_cast<char *>(memcpy(pieces + count + 1, text, size));
    for (size_t i = 0; i < count; i++) {
        char *end = i + 1 < count ? strchr(piece, ch) : piece + strlen(piece);
        *end = '\0';
        pieces[i] = rm_leading_whitespace(piece);
        rm_trailing_whitespace(pieces[i]);
        piece = end + 1;
    }
    pieces[count] = nullptr;
    *fields = pieces;
    return static_cast<int>(count);
}

void convert_char(char *text, char from, char to)
{
    for (; *text; text++)
        if (*text == from)
            *text = to;
}

char *rm_leading_whitespace(char *text)
{
    while (is_space(*text))
        text++;
    return text;
}

void rm_trailing_whitespace(char *text)
{
    size_t n = strlen(text);
    while (n > 0 && is_space(text[n - 1]))
        n--;
    text[n] = '\0';
}

std::string_view stripped(std::string_view text)
{
    auto outside = [](char ch) { return is_space(ch) || ch == '"'; };
    while (!text.empty() && outside(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && outside(text.back()))
        text.remove_suffix(1);
    return text;
}

char *strip_enclosing_whitespace(char *text)
{
    const std::string_view inside = stripped(text);
    char *begin = text + (inside.data() - text);
    begin[inside.size()] = '\0';
    return begin;
}

const char *strcasestr(const char *haystack, const char *needle)
{
    // The end of the haystack is tried too: an empty needle is found there.
    for (size_t n = strlen(needle);; haystack++) {
        if (strncasecmp(haystack, needle, n) == 0)
            return haystack;
        if (!*haystack)
            return nullptr;
    }
}

int octal_perms_to_int(const char *text)
{
    int value = 0;
    for (; text && *text; text++) {
        if (*text < '0' || *text > '7')
            return -1;
        value = value * 8 + (*text - '0');
        if (value > 0777)  // at every digit, before it can overflow
            return -1;
    }
    return value;
}

}  // namespace faxtray
