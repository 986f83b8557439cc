// Time windows: which records fall into one.
#include "engine/time_window.h"

#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

// A new list of the records of `evals` that `accepts` takes.
template <typename Accepts>
Ref records_where(PyObject* evals, Accepts&& accepts) {
    Ref kept = new_list();
    for_each(evals, [&](PyObject* ev) {
        if (accepts(ev)) {
            append(kept, ev);
        }
    });
    return kept;
}

// A window without a limit gives back the very list it was given.
Ref filter_by_time_window(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names;
    PyObject* evals = call[names.evals];
    PyObject* window = call[names.tw];
    PyObject* era_id = call[names.era_id];
    const auto is_member = [&](PyObject* name) {
        return equal(window, time_window_member(state, name).get());
    };
    if (is_member(names.LIFETIME)) {
        return Ref::share(evals);
    }
    if (is_member(names.ERA)) {
        if (era_id == Py_None) {
            return Ref::share(evals);
        }
        return records_where(
            evals, [&](PyObject* ev) { return equal(attribute(ev, names.era_id).get(), era_id); });
    }
    if (is_member(names.LAST_WEEK)) {
        return records_since(names, evals, Cutoff(cutoff_before(call[names.now], kSecondsPerWeek)));
    }
    if (is_member(names.LAST_24H)) {
        return records_since(names, evals, Cutoff(cutoff_before(call[names.now], kSecondsPerDay)));
    }
    return Ref::share(evals);
}

}  // namespace

Ref cutoff_before(PyObject* now, long seconds) { return subtract(now, integer(seconds).get()); }

Ref current_time(const ModuleState& state) {
    return call_method(load_global(state, state.names.time).get(), state.names.time);
}

Cutoff::Cutoff(Ref moment)
    : moment_(std::move(moment)),
      is_real_(PyFloat_CheckExact(moment_.get())),
      seconds_(is_real_ ? PyFloat_AS_DOUBLE(moment_.get()) : 0.0) {}

Ref records_since(const Names& names, PyObject* evals, const Cutoff& cutoff) {
    return records_where(
        evals, [&](PyObject* ev) { return cutoff.includes(attribute(ev, names.timestamp).get()); });
}

Py_ssize_t passed_count(const Names& names, PyObject* evals) {
    Py_ssize_t count = 0;
    for_each(evals, [&](PyObject* ev) {
        count += truth(attribute(ev, names.passed_thresholds).get()) ? 1 : 0;
    });
    return count;
}

Ref time_window_member(const ModuleState& state, PyObject* name) {
    return attribute(load_global(state, state.names.TimeWindow).get(), name);
}

const FunctionDescription kFilterByTimeWindow = {
    "_filter_by_time_window",
    "Return the records that fall into a time window.",
    {"self, evals, tw, era_id, now"},
    {},
    filter_by_time_window,
};

}  // namespace search_analytics
