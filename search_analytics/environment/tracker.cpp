// The search tracker: from a running search, from the package's runtime, or from the data folder.
#include "environment/helpers.h"
#include "facade/statement.h"
#include "names/names.h"

namespace search_analytics {

namespace {

// Runs `source`, and takes any failure of the Exception family for "there is none".
template <typename Source>
Ref none_on_failure(Source&& source) {
    try {
        return source();
    } catch (const ErrorSet&) {
        if (!error_is(PyExc_Exception)) {
            throw;
        }
        forget_error();
        return Ref::none();
    }
}

Ref runtime_from_onboarding(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names();
    Ref runtime = none_on_failure([&] {
        const Ref module = import_statement(state, "from kestrune import _runtime", names._runtime);
        return call_method(module, names.get_runtime);
    });
    if (!runtime.is_none()) {
        return runtime;
    }
    const Ref bootstrap =
        attribute_or_none(call[names.onboarding_mod], names.ensure_runtime_bootstrapped);
    if (!is_callable(bootstrap)) {
        return Ref::none();
    }
    return none_on_failure([&] {
        Keywords arguments(1);
        arguments.add(names.strict, Py_False);
        return arguments.call(bootstrap);
    });
}

// _os.path.<function>(path)
Ref call_path_function(const ModuleState& state, Arg function, Arg path) {
    const Ref os = load_global(state, state.names()._os);
    return call_method(attribute(os, state.names().path), function, path);
}

Ref tracker_from_config(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names();
    PyObject* config = call[names.onboarding_config];
    const Ref configured =
        is_dict(config) ? call_method(config, names.get, names.data_dir) : Ref::none();
    if (!truth(configured)) {
        raise(PyExc_OSError,
              "Search analytics needs a configured data directory. Run "
              "kestrune.configure(data_dir=...) or register()/login() first.");
    }
    const Ref data_dir = call_path_function(state, names.expanduser, configured);
    if (!truth(call_path_function(state, names.isdir, data_dir))) {
        raise(PyExc_OSError,
              format("Search analytics data directory does not exist: %U. Run "
                     "kestrune.search(...) to initialize local search data, or configure data_dir "
                     "to an existing Kestrune data directory.",
                     text(data_dir)));
    }
    const Ref tracker_class = import_statement(
        state, "from kestrune.search_tracking import SearchTracker", names.SearchTracker);
    return search_analytics::call(tracker_class, data_dir);
}

// The tracker comes first, so that a missing data folder is reported before any pool error. The
// runtime is left alone while a search runs.
Ref resolve_tracker_and_pools(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names();
    PyObject* onboarding_module = call[names.onboarding_mod];
    const auto configured = optional_attribute(onboarding_module, names._config);
    const Ref config = configured ? configured->copy() : new_dict();
    const Ref handle = call_global(state, names._active_search_handle);
    const Ref runtime = handle.is_none()
                            ? call_global(state, names._runtime_from_onboarding, onboarding_module)
                            : Ref::none();
    Ref tracker = handle.is_none() ? Ref::none() : attribute_or_none(handle, names._tracker);
    if (tracker.is_none() && !runtime.is_none()) {
        tracker = attribute_or_none(runtime, names.search_tracker);
    }
    if (tracker.is_none()) {
        tracker = call_global(state, names._tracker_from_config, config);
    }
    const Ref pools = call_global(state, names._resolve_pool_configs, config, handle, runtime);
    return tuple_of(tracker, pools);
}

}  // namespace

const FunctionDescription kRuntimeFromOnboarding = {
    "_runtime_from_onboarding",
    "Return the package runtime, bootstrapped where it can be, or None.",
    {"onboarding_mod"},
    {},
    runtime_from_onboarding,
};

const FunctionDescription kTrackerFromConfig = {
    "_tracker_from_config", "Return a new SearchTracker over the configured data directory.",
    {"onboarding_config"},  {},
    tracker_from_config,
};

const FunctionDescription kResolveTrackerAndPools = {
    "_resolve_tracker_and_pools",
    "Return the search tracker and the pool configs that are in force.",
    {"onboarding_mod"},
    {},
    resolve_tracker_and_pools,
};

}  // namespace search_analytics
