// Reading a configuration value that may be a mapping or an object.
#include "environment/helpers.h"
#include "names/names.h"

namespace search_analytics {

namespace {

// A mapping answers through its own `get`, so that a subclass decides what it holds; anything
// else answers by attribute, where only a missing one gives the default.
Ref get_attr_or_item(const Call& call) {
    const Names& names = call.names();
    PyObject* value = call[names.value];
    PyObject* key = call[names.key];
    PyObject* default_value = call[names.default_value];
    if (is_dict(value)) {
        return call_method(value, names.get, key, default_value);
    }
    if (!is_str(key)) {
        // TypeError, in the built-in function's own words.
        const auto getattr = builtin(call.state(), names.getattr);
        return getattr ? search_analytics::call(*getattr, value, key) : attribute(value, key);
    }
    auto found = optional_attribute(value, key);
    return found ? std::move(*found) : Ref::share(default_value);
}

}  // namespace

Ref attr_or_item(const ModuleState& state, Arg value, Arg key) {
    return call_global(state, state.names()._get_attr_or_item, value, key, Py_None);
}

const FunctionDescription kGetAttrOrItem = {
    "_get_attr_or_item",
    "Read a mapping by key and any other object by attribute, with a default.",
    {"value, key, default=None"},
    {},
    get_attr_or_item,
};

}  // namespace search_analytics
