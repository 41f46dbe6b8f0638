// A page of any bytes: the decoders pass on what the plain walk of the trees does, and what the encoder makes
// of the lines decodes to the same lines.
#pragma once

#include "check.h"
#include "t4_page.h"

namespace faxtray {

inline void fuzz_decoder(const uint8_t *bytes, size_t n, int df)
{
    if (n > 8192)
        return;
    const std::string data(bytes, bytes + n);
    const decoded_page_t page = decode(data, df);
    check(page == decode_by_walk(data, df));
    for (const std::string &line : page.lines)
        check(line.size() == 216);
}

inline void fuzz_t4_mh(const uint8_t *bytes, size_t n)
{
    fuzz_decoder(bytes, n, DF_MH);
}

inline void fuzz_t4_mr(const uint8_t *bytes, size_t n)
{
    fuzz_decoder(bytes, n, DF_MR);
}

inline void fuzz_t4_mmr(const uint8_t *bytes, size_t n)
{
    fuzz_decoder(bytes, n, DF_MMR);
}

// The first byte chooses the coding that is read, the one that is written, and the resolution.
inline void fuzz_t4_recode(const uint8_t *bytes, size_t n)
{
    static constexpr int dfs[4] = {DF_MH, DF_MR, DF_MMR, DF_MMR};
    if (n < 1 || n > 8192)
        return;
    const int from = dfs[bytes[0] & 3], to = dfs[bytes[0] >> 2 & 3], vr = bytes[0] >> 4 & 1;
    page_t lines = decode({bytes + 1, bytes + n}, from).lines;
    if (lines.size() > 400)  // in T.6 every bit may be a line
        lines.resize(400);
    if (lines.empty())
        return;
    const page_t again = decode(encode(lines, to, vr), to).lines;
    if (to == DF_MH) {  // a white line at the top, and no end of line after the last
        lines.insert(lines.begin(), std::string(216, '\0'));
        lines.pop_back();
    }
    check(again == lines);
}

}  // namespace faxtray
