// av_table: a table of av lists with an index by munged name beside the chain, so that loading and
// looking up twenty thousand entries is not quadratic. What av_get and avl_update with munged_strcmp
// would find, replace and append is found, replaced and appended here.
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

    av_list_t *head() const noexcept { return head_; }  // the chain, in order; the table's own

    // Takes `list` over: in place of the entry of the same name, else at the end. Its `next` must be
    // null. Returns 1, or 0 for an empty key or without memory, as avl_update says it; `list` then
    // stays the caller's, who may print and must free it.
    int update(av_list_ptr &&list) noexcept;

    // The first entry of that name, or null; messages and av_error() as av_get. The table's own, valid
    // until the next update.
    av_list_t *get(const char *name) const noexcept;

    void clear() noexcept;

private:
    void append(av_list_t *list) noexcept;

    av_list_t *head_ = nullptr;
    av_list_t *last_ = nullptr;
    // Only names that equal themselves: no other name is ever found again.
    std::map<std::string, av_list_t *, munged_less> index_;
};

}  // namespace faxtray
