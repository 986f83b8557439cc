// Telling an agent's own measure from the server's.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kPnlMiTamperDelta;

// _pnl_mi_tamper_delta(agent_value, server_value)
host::Ref pnl_mi_tamper_delta(const host::ModuleState& state, PyObject* agent_value,
                              PyObject* server_value);

}  // namespace search_analytics
