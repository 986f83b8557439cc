// Fetching the evaluations that an operation looks at.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kFetchEvaluations;

}  // namespace search_analytics
