// Reading a configuration value that may be a mapping or an object.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kGetAttrOrItem;

// _get_attr_or_item(value, key), as it stands in the module now: None where there is none.
host::Ref attr_or_item(const host::ModuleState& state, PyObject* value, PyObject* key);

}  // namespace search_analytics
