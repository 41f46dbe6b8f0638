// av_trace: attribute-value lists in the trace; beside the lists, so that tracing knows none.
#pragma once

#include "config/av_list.h"

namespace faxtray {

// Traces key, check value and attributes of one list, a line each; not what is chained behind it.
void tr_av_printf(const av_list_t *list);

}  // namespace faxtray
