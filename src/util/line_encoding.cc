// Both encoders turn a block of lines at once and look up 12 bits as two characters: a fax may have
// megabytes, and the daemon serves nobody else meanwhile.
#include "util/line_encoding.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace faxtray {

static constexpr size_t longest_line = 54;  // bytes; makes 72 characters
static constexpr size_t lines_a_block = 512;

// The two characters for each 12-bit value. Half the look-ups of a table of 64, and it still fits the first
// cache.
using pair_table = std::array<std::array<char, 2>, 4096>;

static constexpr pair_table make_pairs(const char *alphabet)
{
    pair_table pairs = {};
    for (size_t v = 0; v < pairs.size(); v++)
        pairs[v] = {alphabet[v >> 6], alphabet[v & 63]};
    return pairs;
}

static constexpr char base64_alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
static constexpr char uuencode_alphabet[] =
    "`!\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_";
static constexpr pair_table base64_pairs = make_pairs(base64_alphabet);
static constexpr pair_table uuencode_pairs = make_pairs(uuencode_alphabet);

// Writes four characters for each three of the `n` bytes, for a short last group as if zeros followed.
// Returns the end of what was written.
static char *encode_groups(const pair_table &pairs, const unsigned char *in, size_t n, char *out)
{
    for (; n >= 3; n -= 3, in += 3, out += 4) {
        unsigned group = static_cast<unsigned>(in[0] << 16 | in[1] << 8 | in[2]);
        memcpy(out, pairs[group >> 12].data(), 2);
        memcpy(out + 2, pairs[group & 0xFFF].data(), 2);
    }
    if (n == 0)
        return out;
    const unsigned char last[3] = {in[0], n > 1 ? in[1] : static_cast<unsigned char>(0), 0};
    return encode_groups(pairs, last, sizeof last, out);
}

// One line of base64: "=" replaces the characters that a short last group does not have.
static char *base64_line(const unsigned char *in, size_t n, char *out)
{
    char *end = encode_groups(base64_pairs, in, n, out);
    if (n % 3 != 0)
        memset(end - (3 - n % 3), '=', 3 - n % 3);
    if (end - out > 68)  // a full line, even if padding fills it; a shorter last one has no line end
        *end++ = '\n';
    return end;
}

// A line begins with its number of bytes, as a character; a last group is padded with zeros.
static char *uuencode_line(const unsigned char *in, size_t n, char *out)
{
    *out++ = static_cast<char>((n & 63) + 32);
    char *end = encode_groups(uuencode_pairs, in, n, out);
    *end++ = '\n';
    return end;
}

// Encodes all of `in`, `line` bytes a line, with one write for each block of lines. Returns true, also if
// writing fails, which ends it early; false with errno if reading fails.
static bool encode_lines(FILE *in, FILE *out, size_t line,
                         char *(*encode)(const unsigned char *in, size_t n, char *out))
{
    // Whole lines a block, so that no group of three bytes is split between two reads.
    unsigned char bytes[longest_line * lines_a_block];
    char text[(longest_line / 3 * 4 + 1) * lines_a_block];
    const size_t block = line * lines_a_block;
    size_t got;
    do {  // a short block is the last one
        got = fread(bytes, 1, block, in);
        if (ferror(in))
            return false;
        char *end = text;
        for (size_t at = 0; at < got; at += line)
            end = encode(bytes + at, std::min(line, got - at), end);
        auto length = static_cast<size_t>(end - text);
        if (fwrite(text, 1, length, out) != length)
            return true;
    } while (got == block);
    return true;
}

bool base64_lines(FILE *in, FILE *out)
{
    return encode_lines(in, out, 54, base64_line);
}

bool uuencode_lines(FILE *in, FILE *out)
{
    return encode_lines(in, out, 45, uuencode_line) && (fputs("`\n", out), true);
}

}  // namespace faxtray
