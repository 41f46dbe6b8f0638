// Takes conversions apart as printf does and prints each with the empty argument. A width or precision counts
// up to 4095, the most that C promises of a conversion (C17 7.21.6.1 paragraph 15).
#include "util/empty_format.h"

#include <algorithm>
#include <cstring>

#include "util/text.h"

namespace faxtray {

namespace {

struct conversion_t {
    bool left = false, zeros = false, alternate = false;  // flags "-", "0", "#"
    const char *sign = "";                                // flag "+" or " "
    size_t width = 0;
    size_t precision = 0;
    bool has_precision = false;
    char kind = '\0';  // the conversion's letter
};

}  // namespace

static constexpr size_t longest = 4095;

// Reads the digits at `*at`, or a "*", whose argument is 0.
static size_t read_number(const char **at)
{
    size_t number = 0;
    if (**at == '*')
        ++*at;
    else
        for (; **at >= '0' && **at <= '9'; ++*at)
            number = std::min(longest, number * 10 + static_cast<size_t>(**at - '0'));
    return number;
}

// Takes apart what follows a "%"; returns its end, or null when it is no conversion.
static const char *read_conversion(const char *at, conversion_t *c)
{
    for (; *at && strchr("-0#+ '", *at); at++) {
        c->left |= *at == '-';
        c->zeros |= *at == '0';
        c->alternate |= *at == '#';
        if (*at == '+' || (*at == ' ' && !*c->sign))
            c->sign = *at == '+' ? "+" : " ";
    }
    c->width = read_number(&at);
    if (*at == '.') {
        c->has_precision = true;
        c->precision = read_number(&++at);
    }
    at += strspn(at, "hlLqjzt");
    c->kind = *at;
    return *at && strchr("%diouxXeEfFgGaAcspn", *at) ? at + 1 : nullptr;
}

static bool is_one_of(char kind, const char *kinds)
{
    return strchr(kinds, kind) != nullptr;
}

// Zero as `c` asks for it, without sign and width.
static std::string zero(const conversion_t &c)
{
    if (is_one_of(c.kind, "diouxX"))
        return std::string(!c.has_precision || (c.kind == 'o' && c.alternate)
                               ? std::max<size_t>(1, c.precision)
                               : c.precision,
                           '0');
    if (is_one_of(c.kind, "gG"))
        return "0";
    bool hex = is_one_of(c.kind, "aA");
    size_t places = c.has_precision ? c.precision : hex ? 0 : 6;
    std::string text = places > 0 ? "0." + std::string(places, '0') : "0";
    switch (c.kind) {
    case 'e':
        return text + "e+00";
    case 'E':
        return text + "E+00";
    case 'a':
        return "0x" + text + "p+0";
    case 'A':
        return "0X" + text + "P+0";
    default:
        return text;
    }
}

static std::string print(const conversion_t &c)
{
    if (c.kind == '%')
        return "%";
    if (c.kind == 'n')
        return "";
    const bool whole = is_one_of(c.kind, "diouxX"), number = !is_one_of(c.kind, "csp");
    std::string text;
    if (c.kind == 's')  // all of it or, as the C library does, nothing
        text = c.has_precision && c.precision < 6 ? "" : "(null)";
    else if (c.kind == 'p')
        text = "(nil)";
    else if (number)  // of a character, the zero byte is left out
        text = zero(c);

    std::string sign = number && !is_one_of(c.kind, "ouxX") ? c.sign : "";
    size_t length = sign.size() + text.size();
    std::string padding(c.width > length ? c.width - length : 0, ' ');
    if (c.left)
        return sign + text + padding;
    if (c.zeros && number && !(whole && c.has_precision))
        return sign + std::string(padding.size(), '0') + text;
    return padding + sign + text;
}

std::string print_empty_format(const char *text)
{
    std::string printed;
    while (!is_empty(text)) {
        size_t plain = strcspn(text, "%");
        printed.append(text, plain);
        text += plain;
        if (!*text)
            break;
        conversion_t c;
        if (const char *end = read_conversion(text + 1, &c)) {
            printed += print(c);
            text = end;
        } else {
            printed += *text++;
        }
    }
    return printed;
}

}  // namespace faxtray
