// What running the module's body does: every name is bound, in a fixed order.
#pragma once

#include "host/module_state.h"

namespace search_analytics {

void run_body(host::ModuleState& state);

}  // namespace search_analytics
