// The caller's login: the package must be registered or logged in before any analytics call.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kAuthFromOnboardingOrSearch;
extern const host::FunctionDescription kRequireRegisteredOrLoggedIn;

}  // namespace search_analytics
