// Signal pools: from what an era configuration holds to checked pool configurations.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kNormalizePoolConfig;
extern const host::FunctionDescription kIterPoolConfigs;
extern const host::FunctionDescription kResolvePoolConfigs;

}  // namespace search_analytics
