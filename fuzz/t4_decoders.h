// A page of any bytes: the decoders pass on what the plain walk of the trees does, and what the encoder makes
// of the lines decodes to the same lines.
#pragma once

#include "check.h"
#include "codec/tree_walk.h"
#include "t4_page.h"

namespace faxtray {

inline void check_same(const decoded_page_t &page, const decoded_page_t &walked)
{
    check(page.result == walked.result);
    check(page.lines == walked.lines);
    check(page.events == walked.events);
    check(page.counts.lines == walked.counts.lines && page.counts.repeated == walked.counts.repeated &&
          page.counts.ended_short == walked.counts.ended_short);
}

template <class Walk> void fuzz_decoder(const uint8_t *bytes, size_t n, int df, Walk walk)
{
    if (n > 8192)
        return;
    const decoded_page_t page = decode({bytes, bytes + n}, df, 1728, true);
    check_same(page, gather(walk, true));
    for (const std::string &line : page.lines)
        check(line.size() == 216);
}

inline void fuzz_t4_mh(const uint8_t *bytes, size_t n)
{
    fuzz_decoder(bytes, n, 0, [&](const t4_callbacks_t &callbacks) { return walk_MH(bytes, n, callbacks); });
}

inline void fuzz_t4_mr(const uint8_t *bytes, size_t n)
{
    fuzz_decoder(bytes, n, 1, [&](const t4_callbacks_t &callbacks) { return walk_MR(bytes, n, callbacks); });
}

inline void fuzz_t4_mmr(const uint8_t *bytes, size_t n)
{
    fuzz_decoder(bytes, n, 3,
                 [&](const t4_callbacks_t &callbacks) { return walk_MMR(bytes, n, 1728, callbacks); });
}

// The first byte chooses the coding that is read, the resolution and the coding that is written.
inline void fuzz_t4_recode(const uint8_t *bytes, size_t n)
{
    static constexpr int dfs[4] = {0, 1, 3, 3};
    if (n < 1 || n > 8192)
        return;
    const int from = dfs[bytes[0] & 3], to = dfs[bytes[0] >> 2 & 3], vr = bytes[0] >> 4 & 1;
    page_t lines = decode({bytes + 1, bytes + n}, from).lines;
    if (lines.size() > 400)  // T.6 makes a line of each bit
        lines.resize(400);
    if (lines.empty())
        return;
    const page_t again = decode(encode(lines, to, vr), to).lines;
    if (to == 0) {  // a white line at the top, and no end of line behind the last
        lines.insert(lines.begin(), std::string(216, '\0'));
        lines.pop_back();
    }
    check(again == lines);
}

}  // namespace faxtray
