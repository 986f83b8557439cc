// Time windows: which records fall into one.
#include "engine/time_window.h"

#include "engine/functions.h"
#include "records/fields.h"

namespace search_analytics {

namespace {

Ref records_of_era(const Names& names, Arg evals, Arg wanted_era) {
    Comparand era_id(names.era_id, wanted_era);
    Ref kept = new_list();
    const auto count = [&](auto ev) {
        if (era_id.matches(era_id(ev))) {
            append(kept, ev.record);
        }
    };
    for_each_evaluation(evals, count, era_id);
    return kept;
}

// A window without a limit gives back the very list it was given.
Ref filter_by_time_window(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names();
    PyObject* evals = call[names.evals];
    PyObject* window = call[names.tw];
    PyObject* era_id = call[names.era_id];
    const auto is_member = [&](PyObject* name) {
        return equal(window, time_window_member(state, name));
    };
    if (is_member(names.LIFETIME)) {
        return Ref::share(evals);
    }
    if (is_member(names.ERA)) {
        return era_id == Py_None ? Ref::share(evals) : records_of_era(names, evals, era_id);
    }
    if (is_member(names.LAST_WEEK)) {
        return records_since(names, evals, cutoff_before(call[names.now], kSecondsPerWeek));
    }
    if (is_member(names.LAST_24H)) {
        return records_since(names, evals, cutoff_before(call[names.now], kSecondsPerDay));
    }
    return Ref::share(evals);
}

}  // namespace

Ref current_time(const ModuleState& state) {
    return call_method(load_global(state, state.names().time), state.names().time);
}

Bound cutoff_before(Arg now, Py_ssize_t seconds) { return Bound(subtract(now, new_int(seconds))); }

Bound cutoff_of_minutes(Arg now, Arg minutes) {
    return Bound(subtract(now, multiply(minutes, new_int(60))));
}

Ref records_since(const Names& names, Arg evals, const Bound& cutoff) {
    Number timestamp(names.timestamp);
    Ref kept = new_list();
    const auto count = [&](auto ev) {
        if (cutoff.is_reached_by(timestamp(ev))) {
            append(kept, ev.record);
        }
    };
    for_each_evaluation(evals, [&] { return cutoff.is_float(); }, count, timestamp);
    return kept;
}

Py_ssize_t passed_count(const Names& names, Arg evals) {
    Flag passed(names.passed_thresholds);
    Py_ssize_t total = 0;
    for_each_evaluation(evals, [&](auto ev) { total += passed(ev) ? 1 : 0; }, passed);
    return total;
}

Ref time_window_member(const ModuleState& state, PyObject* name) {
    return attribute(load_global(state, state.names().TimeWindow), name);
}

const FunctionDescription kFilterByTimeWindow = {
    "_filter_by_time_window",
    "Return the records that fall into a time window.",
    {"self, evals, tw, era_id, now"},
    {},
    filter_by_time_window,
};

}  // namespace search_analytics
