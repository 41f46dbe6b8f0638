// line_changes: a bitmap line of 1728 pixels as the list of its changing elements (ITU-T T.4
// section 4.2.1.3.1): the pixels, counted from 0, that differ in colour from the one before them, the first
// from white.
#pragma once

#include <cstdint>
#include <cstring>

namespace faxtray {

inline constexpr int changes_width = 1728;
inline constexpr int changes_line_bytes = changes_width / 8;
inline constexpr int changes_bitmap_size = changes_line_bytes + 8;  // room that draw_changes wants

struct line_changes_t {
    int count = 0;

    // Ascending, each once; element 0 may be pixel 0. Behind them stands the width, often enough for a look
    // at any block of them; one -1 stands in front. Coders may write a block beyond what counts.
    int16_t *at() { return room + 8; }
    const int16_t *at() const { return room + 8; }

    // Ends the list behind `elements`.
    void end(int elements)
    {
        count = elements;
        for (int i = 0; i < 16; i++)
            at()[elements + i] = changes_width;
    }

    line_changes_t() { end(0); }
    line_changes_t(const line_changes_t &other) { *this = other; }
    line_changes_t &operator=(const line_changes_t &other)
    {
        if (this != &other) {
            memcpy(at(), other.at(), static_cast<size_t>(other.count) * sizeof *at());
            end(other.count);
        }
        return *this;
    }

private:
    alignas(16) int16_t room[8 + changes_width + 24] = {-1, -1, -1, -1, -1, -1, -1, -1};
};

// The list of a bitmap line, which may be at any address.
void find_changes(const unsigned char *bitmap, line_changes_t &line);

// The bitmap line of a list. What is behind the line in its changes_bitmap_size bytes is undefined then.
void draw_changes(const line_changes_t &line, unsigned char *bitmap);

}  // namespace faxtray
