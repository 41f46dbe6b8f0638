// info_lines: the format of USER_LIST.info and MODEMS.info: "[key]" sections of "attribute = value" lines.
//
//   # a comment                      ignored, as are empty lines
//   [Mary O'Neil]                    section line: the key, trimmed; what follows the "]" is ignored
//   email_address = mary@localhost   a name of letters, digits and "_", at most 63; then "=", the value
//   human_name = "  Mary "  ; note   quotes keep blanks; an unescaped ";" or "#" ends the value
//   group                            no "=" or no value: the empty value
//
// Escapes: \\ \n \t \" \# \;. A value holds at most 511 characters. The values of a section whose key
// begins with "__" are raw: neither escapes, nor quotes, nor comments. Kept: a line that is none of these is
// reported and ends its section; administrators lose the lines up to the next section line.
//
// Faults of lines and sections are reported on standard error, values that are too long on the stream set
// here.
#pragma once

#include <cstdio>
#include <functional>

#include "config/av_list.h"

namespace faxtray {

// Reads the next section, attributes sorted by name; the caller frees it. Null at the end of the file, or on
// failure (parse_error() is then 1).
av_list_t *get_row(FILE *file);
int parse_error();  // 0 or 1, of the last get_row

// The value that `text`, the part of a line after "=", denotes; static buffer, valid until the next call.
const char *info_parse_value(const char *text);

// How `value` is written in a line; another static buffer.
const char *info_unparse_value(const char *value);

bool info_is_raw(const char *key);  // whether the values of that section are raw

// What the reader makes of the lines of a file, for a program that explains a list to its administrator. What
// befalls a line itself comes before what the line is, what befalls an attribute after it.
enum class info_event {
    SECTION,     // text: its key
    ATTRIBUTE,   // text: its name, value: its value, both as they are kept
    NO_NAME,     // neither section nor attribute: what follows up to the next section is DROPPED
    NO_BRACKET,  // the same, of a line that begins with "["
    DROPPED,     // part of no section
    TOO_LONG,    // the rest of the line is read as the next line
    ENDS_EARLY,  // a carriage return or null byte ends it; the rest is ignored
    AFTER_KEY,   // a section line goes on after the "]", with text; it is ignored
    NO_EQUALS,   // after the attribute's name comes something else than "="; it is ignored
    NAME_CUT,    // to the longest name
    VALUE_CUT,   // to the longest value
    COMMENT,     // the comment that ends the value touches it
    QUOTE,       // the value begins with a quote and does not end with one
};
struct info_news_t {
    info_event what;
    long line;                 // of the file, from 1
    const char *text, *value;  // valid during the call; of most events the line and ""
};
using info_observer = std::function<void(const info_news_t &)>;

// Calls `observer` for every line that is read from here on, except empty ones and comments, also when a line
// is read again, and prints nothing about lines and sections any more; an empty one ends this. For one file
// at a time. What it throws leaves get_row.
void info_observe(info_observer observer);

// Where this module and info_file report failures; null: nowhere.
void info_set_error_stream(FILE *stream);
FILE *info_error_stream();

}  // namespace faxtray
