// text: cutting, trimming, splitting and searching strings.
#pragma once

#include <string_view>

namespace faxtray {

// Whether there is no text: null or "".
inline bool is_empty(const char *text)
{
    return !text || !*text;
}

// Text as messages show it: "(null)" for none.
inline const char *shown(const char *text)
{
    return text ? text : "(null)";
}

// Whether `ch` is white space in the C locale, whatever the locale is. Inline: scans ask it of every
// character.
inline bool is_space(char ch)
{
    return ch == ' ' || (ch >= '\t' && ch <= '\r');
}

// Returns the number of pieces of `text` between occurrences of `ch` (one more than there are), or -1 with
// errno: EINVAL for a null text, ENOMEM. With `fields` also allocates a null-terminated array of the pieces,
// each without white space at its ends; the caller frees the array, which also holds the pieces.
int split(const char *text, char ch, char ***fields);

void convert_char(char *text, char from, char to);  // in place
char *rm_leading_whitespace(char *text);            // pointer into `text`
void rm_trailing_whitespace(char *text);            // in place
std::string_view stripped(std::string_view text);   // without white space and double quotes at both ends
char *strip_enclosing_whitespace(char *text);       // the same in place; for the fax system's other programs

// Where `needle` first occurs in `haystack`, upper and lower case being the same, or null.
const char *strcasestr(const char *haystack, const char *needle);

// The value of octal digits; 0 for null or "", -1 for any other character or a value above 0777.
int octal_perms_to_int(const char *text);

}  // namespace faxtray
