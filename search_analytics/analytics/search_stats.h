// What works: performance statistics by group and time window.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kGetSearchStats;

}  // namespace search_analytics
