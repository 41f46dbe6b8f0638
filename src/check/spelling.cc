// Texts are short, since attributes' names are cut at 63 characters and others are not compared.
#include "check/spelling.h"

#include <algorithm>
#include <cctype>

namespace faxtray {

static constexpr size_t longest = 64;

static std::string lower_case(std::string text)
{
    for (char &ch : text)
        ch = static_cast<char>(tolower(static_cast<unsigned char>(ch)));
    return text;
}

size_t edit_distance(const std::string &first, const std::string &second)
{
    // Three rows of the usual table: row[j] is the distance of the first i letters of `a` to the first j of
    // `b`.
    const std::string a = lower_case(first), b = lower_case(second);
    std::vector<size_t> before_last, last, row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); j++)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); i++) {
        before_last = std::move(last);
        last = row;
        row[0] = i;
        for (size_t j = 1; j <= b.size(); j++) {
            const size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before_last[j - 2] + 1);
        }
    }
    return row[b.size()];
}

std::string nearest(const std::string &text, const std::vector<std::string> &known)
{
    if (text.size() > longest)
        return "";
    // One letter in four may be wrong, of a short word one.
    size_t best = std::max<size_t>(1, text.size() / 4) + 1;
    std::string found;
    for (const std::string &word : known) {
        const size_t longer = std::max(text.size(), word.size()),
                     shorter = std::min(text.size(), word.size());
        if (longer - shorter >= best)
            continue;
        const size_t distance = edit_distance(text, word);
        if (distance < best) {
            best = distance;
            found = word;
        }
    }
    return found;
}

std::string did_you_mean(const std::string &text, const std::vector<std::string> &known)
{
    const std::string word = nearest(text, known);
    return word.empty() ? "" : ": did you mean '" + word + "'?";
}

}  // namespace faxtray
