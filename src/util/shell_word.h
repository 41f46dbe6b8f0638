// shell_word: text from outside as one word of a shell command.
#pragma once

#include <string>
#include <string_view>

namespace faxtray {

// `text` so that the shell takes it for one word and for nothing else: as it stands if it consists of
// letters, digits and "@%+=:,./_-", in single quotes otherwise. A word that begins with "-" is still an
// option to the command that gets it.
std::string shell_word(std::string_view text);

}  // namespace faxtray
