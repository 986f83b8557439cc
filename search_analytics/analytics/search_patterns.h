// Where passing candidates come from: depths and function families.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kGetSearchPatterns;

}  // namespace search_analytics
