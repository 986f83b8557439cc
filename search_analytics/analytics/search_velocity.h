// How fast the search runs.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kGetSearchVelocity;

}  // namespace search_analytics
