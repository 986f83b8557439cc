// The package's search module: found where it is loaded, imported where it is not.
#pragma once

#include <optional>

#include "facade/function.h"

namespace search_analytics {

// Returns the search module, or nothing where it cannot be imported. A None in the table of
// loaded modules means not loaded; only ImportError means that there is none.
std::optional<Ref> find_search_module(ModuleState& state);

}  // namespace search_analytics
