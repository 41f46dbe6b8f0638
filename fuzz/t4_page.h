// A page through our decoders and encoder, whose callbacks know no context: all that comes out, gathered.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "codec/t4_decoder.h"
#include "codec/t4_encoder.h"

namespace faxtray {

using page_t = std::vector<std::string>;  // bitmap lines

struct decoded_page_t {
    int result = 0;
    page_t lines;
    std::vector<int> events;  // in their order: runs as they are, and these
    enum { LINE = 20000, LINE_END = 20001 };
    t4_page_counts_t counts = {};
};

// The page that is being decoded, coded or read.
inline decoded_page_t *into;
inline const std::string *bitmap;
inline int bitmap_lines;
inline std::string *coded;

// What `decoder`, given callbacks, passes on; `events` too when wanted.
template <class Decoder> decoded_page_t gather(Decoder decoder, bool events)
{
    decoded_page_t page;
    into = &page;
    t4_callbacks_t callbacks;
    callbacks.line = [](const unsigned char *line, int bytes) {
        into->lines.emplace_back(reinterpret_cast<const char *>(line), static_cast<size_t>(bytes));
        into->events.push_back(decoded_page_t::LINE);
    };
    if (events) {
        callbacks.run = [](int run) { into->events.push_back(run); };
        callbacks.line_end = [] { into->events.push_back(decoded_page_t::LINE_END); };
    }
    page.result = decoder(callbacks);
    page.counts = t4dec_counts();
    return page;
}

inline decoded_page_t decode(const std::string &bytes, int df, int width = 1728, bool events = false)
{
    // Exactly as large as it is, so that the address sanitizer watches the edge.
    const std::vector<unsigned char> data(bytes.begin(), bytes.end());
    t4dec_set_pixel_width(width);
    return gather(
        [&](const t4_callbacks_t &callbacks) { return t4dec(data.data(), data.size(), df, callbacks); },
        events);
}

// The page as our encoder codes it; an even number of bytes.
inline std::string encode(const page_t &page, int df, int vr = 1)
{
    std::string all, bytes;
    for (const std::string &line : page)
        all += line;
    bitmap = &all;
    bitmap_lines = static_cast<int>(page.size());
    coded = &bytes;
    auto get_lines = [](const unsigned char **lines, int *count) {
        if (bitmap_lines == 0)
            return -1;
        *lines = reinterpret_cast<const unsigned char *>(bitmap->data());
        *count = bitmap_lines;
        bitmap_lines = 0;
        return static_cast<int>(bitmap->size()) / *count;
    };
    auto put_words = [](const uint16_t *words, int count) {
        for (int i = 0; i < count; i++) {
            coded->push_back(static_cast<char>(words[i] & 0xFF));
            coded->push_back(static_cast<char>(words[i] >> 8));
        }
        return count * 2;
    };
    encode_g3_fax(get_lines, put_words, df, vr);
    return bytes;
}

}  // namespace faxtray
