// Telling an agent's own measure from the server's.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kPnlMiTamperDelta;

}  // namespace search_analytics
