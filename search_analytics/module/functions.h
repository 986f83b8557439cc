// The engine class, and the module-level functions that stand for its operations.
#pragma once

#include "host/module_state.h"

namespace search_analytics {

void bind_engine_class(host::ModuleState& state);
void bind_operations(host::ModuleState& state);

}  // namespace search_analytics
