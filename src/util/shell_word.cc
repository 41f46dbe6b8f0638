// Quotes only what needs it, so that the commands in traces and logs stay readable.
#include "util/shell_word.h"

namespace faxtray {

static constexpr char safe[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789@%+=:,./_-";

std::string shell_word(std::string_view text)
{
    if (!text.empty() && text.find_first_not_of(safe) == text.npos)
        return std::string(text);
    std::string word = "'";
    for (const char ch : text)
        word += ch == '\'' ? std::string("'\\''") : std::string(1, ch);  // nothing is special inside but "'"
    return word + "'";
}

}  // namespace faxtray
