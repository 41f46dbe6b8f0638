// name_set: a set of names that others own, for scans.
#pragma once

#include <bit>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string_view>
#include <vector>

namespace faxtray {

// A hash table with open addressing, at most half full.
// Hashes are stored beside the pointers, because reading a name costs a cache miss.
class name_set_t {
public:
    explicit name_set_t(size_t most) : slots_(std::bit_ceil(2 * most + 1)) {}

    void insert(const char *name)
    {
        size_t hash = hash_of(name);
        slots_[slot_of(name, hash)] = {name, hash};
    }
    bool contains(const char *name) const { return slots_[slot_of(name, hash_of(name))].name; }

private:
    struct slot_t {
        const char *name;
        size_t hash;
    };

    static size_t hash_of(const char *name) { return std::hash<std::string_view>()(name); }

    // The slot that holds `name`, or the free one where it would be put.
    size_t slot_of(const char *name, size_t hash) const
    {
        size_t mask = slots_.size() - 1;
        size_t at = hash & mask;
        while (slots_[at].name && (slots_[at].hash != hash || strcmp(slots_[at].name, name) != 0))
            at = (at + 1) & mask;
        return at;
    }

    std::vector<slot_t> slots_;
};

}  // namespace faxtray
