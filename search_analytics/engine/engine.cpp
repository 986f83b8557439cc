// The analytics engine: one tracker, the pool configs in force, and what may be asked of them.
#include "engine/functions.h"
#include "names/names.h"

namespace search_analytics {

namespace {

void require_positive_threshold(const Names& names, Arg pool_config) {
    const Ref threshold = attribute_or_none(pool_config, names.is_correlation_threshold);
    if (!is_number(threshold) || compare(threshold, new_float(0.0), Py_LE)) {
        raise(PyExc_ValueError, "correlation threshold must be positive.");
    }
}

Ref initialize(const Call& call) {
    const Names& names = call.names();
    PyObject* self = call[names.self];
    PyObject* search_tracker = call[names.search_tracker];
    PyObject* pool_configs = call[names.pool_configs];
    if (search_tracker == Py_None) {
        raise(PyExc_ValueError, "search_tracker must not be None.");
    }
    if (!truth(pool_configs)) {
        raise(PyExc_ValueError, "pool_configs must be non-empty.");
    }
    for_each(pool_configs,
             [&](PyObject* pool_config) { require_positive_threshold(names, pool_config); });
    set_attribute(self, names._tracker, search_tracker);
    set_attribute(self, names._pool_configs, pool_configs);
    return Ref::none();
}

Ref validate_eval_type(const Call& call) {
    const Names& names = call.names();
    PyObject* eval_type = call[names.eval_type];
    if (eval_type == Py_None || equal(eval_type, names.signal) ||
        equal(eval_type, names.strategy)) {
        return Ref::none();
    }
    raise(PyExc_ValueError, format("eval_type must be 'signal', 'strategy', or None, got '%U'.",
                                   formatted(eval_type)));
}

}  // namespace

const FunctionDescription kInit = {
    "__init__",
    "Keep the tracker and the pool configs, after checking them.",
    {"self, search_tracker, pool_configs"},
    {},
    initialize,
};

const FunctionDescription kValidateEvalType = {
    "_validate_eval_type",
    "Raise ValueError unless the evaluation type is 'signal', 'strategy' or None.",
    {"self, eval_type"},
    {},
    validate_eval_type,
};

}  // namespace search_analytics
