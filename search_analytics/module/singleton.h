// The engine that the module-level functions share.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kGetOrInit;

}  // namespace search_analytics
