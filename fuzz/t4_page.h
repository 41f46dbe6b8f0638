// Runs a page through our decoders and encoders, whose
// callbacks have no context, and collects what comes out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "codec/t4_decoder.h"
#include "codec/t4_encoder.h"
#include "codec/tree_walk.h"
#include "faxfile/fax_params.h"

namespace faxtray {

using page_t = std::vector<std::string>;  // bitmap lines

struct decoded_page_t {
    int result = 0;
    page_t lines;
    std::vector<int> events;  // in their order: these, and runs if they were asked for
    enum { LINE = 20000, LINE_END = 20001 };
    t4_page_counts_t counts = {};

    bool operator==(const decoded_page_t &) const = default;
};

// The page being decoded, or being encoded with the next line of it and the result so far.
inline decoded_page_t *into;
inline const page_t *given;
inline size_t next_line;
inline std::string *coded;

// What `decoder`, given callbacks, passes on. With a callback
// for runs the decoders leave every line to the walk.
template <class Decoder> decoded_page_t gather(Decoder decoder, bool runs = false)
{
    decoded_page_t page;
    into = &page;
    t4_callbacks_t callbacks;
    callbacks.line = [](const unsigned char *line, int bytes) {
        into->lines.emplace_back(reinterpret_cast<const char *>(line), static_cast<size_t>(bytes));
        into->events.push_back(decoded_page_t::LINE);
    };
    callbacks.line_end = [] { into->events.push_back(decoded_page_t::LINE_END); };
    if (runs)
        callbacks.run = [](int run) { into->events.push_back(run); };
    page.result = decoder(callbacks);
    page.counts = t4dec_counts();
    return page;
}

inline decoded_page_t decode(const std::string &bytes, int df, int width = 1728, bool runs = false)
{
    // Exactly as large as it is, so that the address sanitizer watches the edge.
    const std::vector<unsigned char> data(bytes.begin(), bytes.end());
    t4dec_set_pixel_width(width);
    return gather(
        [&](const t4_callbacks_t &callbacks) { return t4dec(data.data(), data.size(), df, callbacks); },
        runs);
}

// The same, for lines of 1728 pixels, by the plain walk of the trees.
inline decoded_page_t decode_by_walk(const std::string &bytes, int df)
{
    const unsigned char *data = reinterpret_cast<const unsigned char *>(bytes.data());
    t4dec_set_pixel_width(1728);
    return gather([&](const t4_callbacks_t &callbacks) {
        return df == DF_MH   ? walk_MH(data, bytes.size(), callbacks)
               : df == DF_MR ? walk_MR(data, bytes.size(), callbacks)
                             : walk_MMR(data, bytes.size(), 1728, callbacks);
    });
}

inline int collect_words(const uint16_t *words, int count)
{
    for (int i = 0; i < count; i++) {
        coded->push_back(static_cast<char>(words[i] & 0xFF));
        coded->push_back(static_cast<char>(words[i] >> 8));
    }
    return count * 2;
}

// The page as our encoder codes it, or another one; an even number of bytes.
inline std::string encode(const page_t &page, int df, int vr = 1,
                          decltype(encode_g3_fax) encoder = encode_g3_fax)
{
    std::string bytes;
    given = &page;
    next_line = 0;
    coded = &bytes;
    // A few lines at a time, so that the encoder has to ask more than once.
    auto get_lines = [](const unsigned char **lines, int *count) {
        static std::string some;
        some.clear();
        for (*count = 0; *count < 17 && next_line < given->size(); ++*count)
            some += (*given)[next_line++];
        *lines = reinterpret_cast<const unsigned char *>(some.data());
        return *count == 0 ? -1 : static_cast<int>(some.size()) / *count;
    };
    encoder(get_lines, collect_words, df, vr);
    return bytes;
}

}  // namespace faxtray
