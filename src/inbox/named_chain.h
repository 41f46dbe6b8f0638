// named_chain: a chain of records, ordered by name as munged_strcmp compares them, with an index by munged
// name beside it, so that twenty thousand records are inserted and found without walking.
//
// To munged_strcmp, a name that ends in punctuation or white space equals no name, not even itself: such
// records are never found and never duplicates. Among names of one munged form they come after the one that
// equals itself, in order of insertion.
#pragma once

#include <algorithm>
#include <iterator>
#include <map>
#include <new>
#include <string>
#include <utility>

#include "config/munged_name.h"

namespace faxtray {

// Always: the index holds the records of the chain, in its order. `Name` returns a record's name; the field
// `next` of a record is the chain's link. The chain does not own its records.
template <class Record, const char *(*Name)(const Record *)> struct named_chain_t {
    using index_t = std::multimap<std::string, Record *, munged_less>;

    named_chain_t() = default;
    named_chain_t(const named_chain_t &) = delete;
    named_chain_t &operator=(const named_chain_t &) = delete;

    Record *head = nullptr;
    index_t by_name;

    // Inserts `record` before the first one that compares greater. Returns false if its name is taken; throws
    // std::bad_alloc without memory. Nothing has changed then.
    bool insert(Record *record)
    {
        std::string key = munged_key(Name(record));
        auto [same, at] = by_name.equal_range(key);
        if (same != at && equals_itself(Name(record)))
            return false;
        // The index first, as it may throw: until then the record must not lead to the others, or whoever
        // frees it would free them too. Linking cannot fail.
        Record *next = at == by_name.end() ? nullptr : at->second;
        link_to(by_name.emplace_hint(at, std::move(key), record)) = record;
        record->next = next;
        return true;
    }

    // Unlinks the record of that name, clears its link and returns it; null if there is none.
    Record *remove(const char *name) noexcept
    {
        auto at = locate(name);
        if (at == by_name.end())
            return nullptr;
        Record *record = at->second;
        link_to(at) = record->next;
        by_name.erase(at);
        record->next = nullptr;
        return record;
    }

    Record *find(const char *name) const noexcept
    {
        auto at = locate(name);
        return at == by_name.end() ? nullptr : at->second;
    }

    void swap(named_chain_t &other) noexcept
    {
        std::swap(head, other.head);
        by_name.swap(other.by_name);
    }

    // Empties chain and index. Returns the first record, the others still chained to it.
    Record *release() noexcept
    {
        by_name.clear();
        return std::exchange(head, nullptr);
    }

private:
    // The link that points to the record at `at`: the previous record's, or the head.
    Record *&link_to(typename index_t::const_iterator at) noexcept
    {
        return at == by_name.cbegin() ? head : std::prev(at)->second->next;
    }

    typename index_t::const_iterator locate(const char *name) const noexcept
    {
        if (!name || !equals_itself(name))
            return by_name.end();
        try {
            return by_name.find(munged_key(name));
        } catch (const std::bad_alloc &) {  // no memory for the key: comparing one by one needs none
            return std::find_if(by_name.begin(), by_name.end(), [name](const auto &entry) {
                return munged_strcmp(Name(entry.second), name) == 0;
            });
        }
    }
};

}  // namespace faxtray
