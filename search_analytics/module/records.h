// The result records: one data class per kind of answer.
#pragma once

#include "host/module_state.h"

namespace search_analytics {

void bind_records(host::ModuleState& state);

}  // namespace search_analytics
