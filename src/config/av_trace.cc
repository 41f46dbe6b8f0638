// One list as trace lines.
#include "config/av_trace.h"

#include "util/trace.h"

namespace faxtray {

void tr_av_printf(const av_list_t *list)
{
    if (!list || !tr_writing())  // saves formatting a long list for nothing
        return;
    trprintf("key:         [%s]\n", list->key);
    trprintf("check_value: [%ld]\n", static_cast<long>(list->check_value));
    for (const av_node_t *node = list->nodes; node; node = node->next)
        trprintf("    %s = [%s]\n", node->attr, node->value);
}

}  // namespace faxtray
