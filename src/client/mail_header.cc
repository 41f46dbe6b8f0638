#include "client/mail_header.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "util/command_output.h"

namespace faxtray {

// Whatever the locale is.
static bool is_letter_or_digit(char ch)
{
    return (ch >= '0' && ch <= '9') || (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z');
}

static std::string one_line(std::string text)
{
    std::erase_if(text, [](char ch) { return ch == '\n' || ch == '\r'; });
    return plain_utf8(text);
}

// Whether a value needs no encoding, and no folding. Blanks at its ends would be lost.
static bool is_plain(const std::string &line)
{
    return line.size() <= 60 && !line.starts_with(' ') && !line.ends_with(' ') &&
           line.find("=?") == std::string::npos &&
           std::all_of(line.begin(), line.end(), [](char ch) { return ch >= ' ' && ch <= '~'; });
}

// As a quoted string.
static std::string quoted(const std::string &line)
{
    std::string text = "\"";
    for (const char ch : line) {
        if (ch == '"' || ch == '\\')
            text += '\\';
        text += ch;
    }
    return text + '"';
}

// A byte that stands for itself only if it is a letter or digit; else its code, after `mark`.
static std::string coded(char ch, char mark)
{
    char code[8];
    snprintf(code, sizeof code, "%c%02X", mark, static_cast<unsigned char>(ch));
    return is_letter_or_digit(ch) ? std::string(1, ch) : code;
}

// RFC 2047 section 4.2, the "Q" encoding, each word on a line of its own. A character is not split between
// words (section 5).
static std::string encoded_words(const std::string &line)
{
    static constexpr std::string_view begin = "=?utf-8?q?", end = "?=";
    constexpr size_t longest = 75 - begin.size() - end.size();
    std::string words(begin);
    size_t length = 0;
    for (size_t at = 0; at < line.size();) {
        std::string character;
        do
            character += line[at] == ' ' ? "_" : coded(line[at], '=');
        while (++at < line.size() && (line[at] & 0xC0) == 0x80);
        if (length + character.size() > longest) {
            words.append(end).append("\n ").append(begin);
            length = 0;
        }
        words += character;
        length += character.size();
    }
    return words.append(end);
}

std::string header_text(const std::string &text)
{
    const std::string line = one_line(text);
    return is_plain(line) ? line : encoded_words(line);
}

std::string header_mailbox(const std::string &name)
{
    const std::string line = one_line(name);
    std::string local;
    for (const char ch : line)
        if ((is_letter_or_digit(ch) || ch == '+') && local.size() < 64)  // RFC 5321 section 4.5.3.1.1
            local += ch;
    return (is_plain(line) ? quoted(line) : encoded_words(line)) + " <" + (local.empty() ? "fax" : local) +
           "@fax.invalid>";
}

std::string header_parameter(const std::string &name, const std::string &text)
{
    const std::string line = one_line(text);
    if (is_plain(line))
        return "; " + name + "=" + quoted(line);
    std::string value;
    for (const char ch : line)
        value += ch == '.' || ch == '-' ? std::string(1, ch) : coded(ch, '%');
    return "; " + name + "*=utf-8''" + value;
}

}  // namespace faxtray
