// The search that is running in this process, if any.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kActiveSearchHandle;

}  // namespace search_analytics
