// The path under which the module shows its source text.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kAliasSourceFile;

}  // namespace search_analytics
