// The words that callers and code share: enumerations, key maps and constants.
#pragma once

#include "host/module_state.h"

namespace search_analytics {

void bind_enumerations(const host::ModuleState& state);
void bind_key_maps(const host::ModuleState& state);

}  // namespace search_analytics
