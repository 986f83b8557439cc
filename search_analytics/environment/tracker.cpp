// The search tracker: from a running search, from the package's runtime, or from the data folder.
#include "environment/tracker.h"

#include "host/containers.h"
#include "host/statement.h"

namespace search_analytics {

using namespace host;

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
    const Names& names = state.names;
    Ref runtime = none_on_failure([&] {
        const Ref module = import_statement(state, "from kestrune import _runtime", names._runtime);
        return call_method(module.get(), names.get_runtime);
    });
    if (!runtime.is_none()) {
        return runtime;
    }
    const Ref bootstrap =
        attribute_or_none(call[names.onboarding_mod], names.ensure_runtime_bootstrapped);
    if (PyCallable_Check(bootstrap.get()) == 0) {
        return Ref::none();
    }
    return none_on_failure([&] {
        Keywords arguments(1);
        arguments.add(names.strict, Py_False);
        return arguments.call(bootstrap.get());
    });
}

// _os.path.<function>(path)
Ref call_path_function(const ModuleState& state, PyObject* function, PyObject* path) {
    const Ref os = load_global(state, state.names._os);
    return call_method(attribute(os.get(), state.names.path).get(), function, path);
}

Ref tracker_from_config(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names;
    PyObject* config = call[names.onboarding_config];
    const Ref configured =
        is_dict(config) ? call_method(config, names.get, names.data_dir) : Ref::none();
    if (!truth(configured.get())) {
        raise(PyExc_OSError,
              "Search analytics needs a configured data directory. Run "
              "kestrune.configure(data_dir=...) or register()/login() first.");
    }
    const Ref data_dir = call_path_function(state, names.expanduser, configured.get());
    if (!truth(call_path_function(state, names.isdir, data_dir.get()).get())) {
        raise(PyExc_OSError,
              format("Search analytics data directory does not exist: %U. Run "
                     "kestrune.search(...) to initialize local search data, or configure data_dir "
                     "to an existing Kestrune data directory.",
                     text(data_dir.get()).get()));
    }
    const Ref tracker_class = import_statement(
        state, "from kestrune.search_tracking import SearchTracker", names.SearchTracker);
    return host::call(tracker_class.get(), data_dir.get());
}

// The tracker comes first, so that a missing data folder is reported before any pool error. The
// runtime is left alone while a search runs.
Ref resolve_tracker_and_pools(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names;
    PyObject* onboarding_module = call[names.onboarding_mod];
    const auto configured = optional_attribute(onboarding_module, names._config);
    const Ref config = configured ? configured->copy() : new_dict();
    const Ref handle = call_global(state, names._active_search_handle);
    const Ref runtime = handle.is_none()
                            ? call_global(state, names._runtime_from_onboarding, onboarding_module)
                            : Ref::none();
    Ref tracker = handle.is_none() ? Ref::none() : attribute_or_none(handle.get(), names._tracker);
    if (tracker.is_none() && !runtime.is_none()) {
        tracker = attribute_or_none(runtime.get(), names.search_tracker);
    }
    if (tracker.is_none()) {
        tracker = call_global(state, names._tracker_from_config, config.get());
    }
    const Ref pools =
        call_global(state, names._resolve_pool_configs, config.get(), handle.get(), runtime.get());
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
