// What there is: the eras, universes and groupings that the other operations accept.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kGetAvailableEras;
extern const host::FunctionDescription kGetAvailableNamedUniverses;
extern const host::FunctionDescription kGetAvailableAggregations;

}  // namespace search_analytics
