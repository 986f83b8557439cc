// Which functions go together.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kGetCorrelationPatterns;

}  // namespace search_analytics
