// av_table: a table of av lists with an index by munged name beside the chain, so that loading and
// looking up twenty thousand entries is not quadratic. Finds, replaces and appends exactly as av_get and
// avl_update with munged_strcmp would.
#pragma once

#include <map>
#include <string>

#include "config/av_list.h"
#include "config/munged_name.h"

namespace faxtray {

class av_table_t {
public:
    av_table_t() = default;
    av_table_t(const av_table_t &) = delete;
    av_table_t &operator=(const av_table_t &) = delete;
    ~av_table_t() { clear(); }

    av_list_t *head() const noexcept { return head_; }  // the chain, in order; owned by the table

    // Takes `list` over, in place of the entry of the same name or else at the end. Its `next` must be null.
    // Returns 1, or 0 for an empty key or when out of memory, with avl_update's messages; the caller then
    // still owns `list`.
    int update(av_list_ptr &&list) noexcept;

    // The first entry of that name, or null; messages and av_error() as av_get. It belongs to the table and
    // is valid until the next update.
    av_list_t *get(const char *name) const noexcept;

    void clear() noexcept;
    void swap(av_table_t &other) noexcept;

private:
    void append(av_list_t *list) noexcept;

    av_list_t *head_ = nullptr;
    av_list_t *last_ = nullptr;
    // Holds only names for which equals_itself() is true; the others can never be looked up.
    std::map<std::string, av_list_t *, munged_less> index_;
};

}  // namespace faxtray
