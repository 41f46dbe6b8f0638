// text: cutting, trimming, splitting and searching strings.
#pragma once

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

// White space as the C locale has it, without a library call a character.
inline bool is_space(char ch)
{
    return ch == ' ' || (ch >= '\t' && ch <= '\r');
}

// Counts the pieces of `text` between `ch`. With `fields`, also allocates one block with a
// null-terminated array of the pieces, each trimmed of white space: the caller frees that block.
// Returns the count, or -1 with errno (EINVAL for a null text, ENOMEM).
int split(const char *text, char ch, char ***fields);

void convert_char(char *text, char from, char to);  // in place
char *rm_leading_whitespace(char *text);            // pointer into `text`
void rm_trailing_whitespace(char *text);            // in place
char *strip_enclosing_whitespace(char *text);       // white space and double quotes, both ends, in place
const char *strcasestr(const char *haystack, const char *needle);

// Octal digits to a number; 0 for null or "", -1 for another character or a value above 0777.
int octal_perms_to_int(const char *text);

}  // namespace faxtray
