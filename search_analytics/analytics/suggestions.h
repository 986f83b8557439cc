// What to try next, and what to leave.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kGetSuggestions;

}  // namespace search_analytics
