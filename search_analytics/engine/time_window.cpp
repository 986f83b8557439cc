// Time windows: which records fall into one.
#include "engine/time_window.h"

#include "host/record_walk.h"

namespace search_analytics {

using namespace host;

namespace {

Ref records_of_era(const Names& names, PyObject* evals, PyObject* wanted_era) {
    AttributeReader era_id(names.era_id);
    Ref kept = new_list();
    for_each_record(evals, ReadAhead().value(era_id), [&](PyObject* ev) {
        if (equal(era_id.read(ev).get(), wanted_era)) {
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
        return records_of_era(names, evals, era_id);
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
    AttributeReader timestamp(names.timestamp);
    Ref kept = new_list();
    const auto look = [&](PyObject* ev) {
        PyObject* moment = timestamp.look(ev);
        if (moment == nullptr || !cutoff.can_look_at(moment)) {
            return false;
        }
        if (cutoff.includes(moment)) {
            append(kept, ev);
        }
        return true;
    };
    for_each_record(evals, ReadAhead().value(timestamp), look, [&](PyObject* ev) {
        if (cutoff.includes(timestamp.read(ev).get())) {
            append(kept, ev);
        }
    });
    return kept;
}

std::optional<std::vector<PassCounts>> counts_by_looking(const Names& names, PyObject* evals,
                                                         const std::vector<Cutoff>& cutoffs) {
    AttributeReader timestamp(names.timestamp);
    AttributeReader passed_thresholds(names.passed_thresholds);
    if (PyList_GET_SIZE(evals) > 0) {
        const Ref first = Ref::share(items_of(evals).front());
        timestamp.learn_by_looking(first.get());
        passed_thresholds.learn_by_looking(first.get());
    }
    const ReadAhead ahead = ReadAhead().value(timestamp);
    std::vector<PassCounts> counts(cutoffs.size());
    bool is_enough = true;
    for_each_place_until(evals, [&](Py_ssize_t i, PyObject* ev) {
        ahead.look(evals, i);
        PyObject* moment = timestamp.look(ev);
        is_enough = moment != nullptr;
        for (std::size_t window = 0; is_enough && window < cutoffs.size(); ++window) {
            is_enough = cutoffs[window].can_look_at(moment);
            if (is_enough && cutoffs[window].includes(moment)) {
                PyObject* passed = passed_thresholds.look(ev);
                is_enough = passed != nullptr && PyBool_Check(passed);
                counts[window].add(passed == Py_True);
            }
        }
        return is_enough;
    });
    return is_enough ? std::optional(std::move(counts)) : std::nullopt;
}

Py_ssize_t passed_count(const Names& names, PyObject* evals) {
    AttributeReader passed_thresholds(names.passed_thresholds);
    Py_ssize_t count = 0;
    const auto look = [&](PyObject* ev) {
        PyObject* passed = passed_thresholds.look(ev);
        if (passed == nullptr || !PyBool_Check(passed)) {
            return false;
        }
        count += passed == Py_True ? 1 : 0;
        return true;
    };
    for_each_record(evals, ReadAhead().flag(passed_thresholds), look, [&](PyObject* ev) {
        count += truth(passed_thresholds.read(ev).get()) ? 1 : 0;
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
