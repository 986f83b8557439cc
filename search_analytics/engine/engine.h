// The analytics engine: one tracker, the pool configs in force, and what may be asked of them.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kInit;
extern const host::FunctionDescription kValidateEvalType;

}  // namespace search_analytics
