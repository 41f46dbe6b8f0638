// av_trace: attribute-value lists in the trace; beside the lists, so that tracing knows none.
#pragma once

#include "config/av_list.h"

namespace faxtray {

void tr_av_printf(const av_list_t *list);  // one list

}  // namespace faxtray
