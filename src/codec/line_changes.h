// line_changes: a bitmap line of 1728 pixels as the list of its changing elements (ITU-T T.4
// section 4.2.1.3.1): the pixels, counted from 0, that differ in colour from the one before them; the first
// is compared with white.
#pragma once

#include <cstdint>
#include <cstring>

namespace faxtray {

inline constexpr int changes_width = 1728;
inline constexpr int changes_line_bytes = changes_width / 8;
inline constexpr int changes_bitmap_size = changes_line_bytes + 8;  // what draw_changes needs

struct line_changes_t {
    int count = 0;

    // Strictly ascending; element 0 may be pixel 0. They are followed by enough
    // copies of the width that a block of 8 can be loaded from any element, and
    // preceded by -1. A coder may write up to 60 past the width before it looks at
    // how many there are.
    int16_t *at() { return room + 8; }
    const int16_t *at() const { return room + 8; }

    // Makes this a list of the first `elements`, already written at at().
    void end(int elements)
    {
        count = elements;
        for (int i = 0; i < 16; i++)
            at()[elements + i] = changes_width;
    }

    // Copies leave out the room that is not in use: most lists are far shorter than the longest.
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
    alignas(16) int16_t room[8 + changes_width + 72] = {-1, -1, -1, -1, -1, -1, -1, -1};
};

// Makes the list of a bitmap line of changes_line_bytes bytes, at any address.
void find_changes(const unsigned char *bitmap, line_changes_t &line);

// Draws the bitmap line of a list. `bitmap` has changes_bitmap_size
// bytes; those after the line are undefined afterwards.
void draw_changes(const line_changes_t &line, unsigned char *bitmap);

}  // namespace faxtray
