// The chain of entries and the index beside it.
#include "config/av_table.h"

#include <new>
#include <utility>

namespace faxtray {

void av_table_t::append(av_list_t *list) noexcept
{
    (last_ ? last_->next : head_) = list;
    last_ = list;
}

int av_table_t::update(av_list_ptr &&list) noexcept
{
    if (!list || !list->key || !*list->key)
        return avl_update(&head_, munged_strcmp, list.get());  // refuses with its messages
    if (!equals_itself(list->key)) {
        // Equal to no name, not even its own: nothing to replace, and nobody will ask for it.
        append(list.release());
        return 1;
    }
    try {
        auto [place, added] = index_.try_emplace(munged_key(list->key), list.get());
        if (added) {
            append(list.release());
            return 1;
        }
        // The old record keeps its place in the chain and takes the new content: the index, and pointers into
        // the chain, stay valid.
        av_list_t *old = place->second;
        std::swap(old->key, list->key);
        std::swap(old->check_value, list->check_value);
        std::swap(old->nodes, list->nodes);
        list.reset();
        return 1;
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

av_list_t *av_table_t::get(const char *name) const noexcept
{
    // A look-up in an empty table refuses a null or empty name with av_get's message and error number.
    if (!av_get(nullptr, munged_strcmp, name) && av_error() != 0)
        return nullptr;
    if (!equals_itself(name))
        return nullptr;
    try {
        auto place = index_.find(munged_key(name));
        return place == index_.end() ? nullptr : place->second;
    } catch (const std::bad_alloc &) {
        return av_get(head_, munged_strcmp, name);  // slower, but needs no memory
    }
}

void av_table_t::clear() noexcept
{
    index_.clear();
    av_free(head_);
    head_ = last_ = nullptr;
}

void av_table_t::swap(av_table_t &other) noexcept
{
    std::swap(head_, other.head_);
    std::swap(last_, other.last_);
    index_.swap(other.index_);
}

}  // namespace faxtray
