#include "support/t4_notation.h"

#include <map>
#include <sstream>

#include "codec/t4_codes.h"

namespace faxtray {

static std::string sent(t4_code_t code)
{
    std::string bits;
    for (int i = 0; i < code.length; i++)
        bits += code.bits >> i & 1 ? '1' : '0';
    return bits;
}

template <class Codes> static std::string sent_run(const Codes &codes, size_t run)
{
    return (run < 64 ? "" : sent(codes[63 + run / 64])) + sent(codes[run % 64]);
}

std::string t4_coded(const std::string &text)
{
    static const std::map<std::string, t4_code_t> names = {
        {"EOL", encwhite[104]}, {"P", enc2D[0]},   {"H", enc2D[1]},     {"V0", enc2D[2]},
        {"VL1", enc2D[3]},      {"VL2", enc2D[4]}, {"VL3", enc2D[5]},   {"VR1", enc2D[6]},
        {"VR2", enc2D[7]},      {"VR3", enc2D[8]}, {"EOL+1", enc2D[9]}, {"EOL+0", enc2D[10]}};
    std::string bits;
    std::istringstream in(text);
    for (std::string name; in >> name;)
        if (names.count(name))
            bits += sent(names.at(name));
        else if (name[0] == 'w' || name[0] == 'b')
            bits += sent_run(name[0] == 'w' ? encwhite : encblack, std::stoul(name.substr(1)));
        else
            bits += name == "|" ? std::string(-bits.size() % 16, '0') : name;
    std::string bytes((bits.size() + 7) / 8, '\0');
    for (size_t i = 0; i < bits.size(); i++)
        if (bits[i] == '1')
            bytes[i / 8] = static_cast<char>(bytes[i / 8] | 1 << i % 8);
    return bytes;
}

}  // namespace faxtray
