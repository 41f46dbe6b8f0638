// av_trace: attribute-value lists in the trace. Here, so that tracing need not know them.
#pragma once

#include "config/av_list.h"

namespace faxtray {

// Traces key, check value and attributes of one list, one line each; the lists chained after it are not
// traced.
void tr_av_printf(const av_list_t *list);

}  // namespace faxtray
