// A thin cover over std::deque: the rest of the fax system knows the queue by these names.
#include "deliver/node_queue.h"

#include <deque>
#include <new>

namespace faxtray {

static std::deque<intptr_t> queue;

int nenq(intptr_t value)
{
    try {
        queue.push_back(value);
        return 1;
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

intptr_t ndeq()
{
    if (!queue.empty())
        queue.pop_front();
    return nhead();
}

intptr_t nhead()
{
    return queue.empty() ? 0 : queue.front();
}

intptr_t ntail()
{
    return queue.empty() ? 0 : queue.back();
}

void npurge()
{
    queue.clear();
}

int ncount()
{
    return static_cast<int>(queue.size());
}

}  // namespace faxtray
