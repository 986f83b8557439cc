// Time windows: which records fall into one.
#pragma once

#include "engine/bound.h"
#include "facade/module_state.h"
#include "names/names.h"

namespace search_analytics {

inline constexpr Py_ssize_t kSecondsPerWeek = 604800;
inline constexpr Py_ssize_t kSecondsPerDay = 86400;

// time.time(), of whatever stands under `time` in the module now.
Ref current_time(const ModuleState& state);

// The cut-offs of windows that end now: records that are not older fall into them.
Bound cutoff_before(Arg now, Py_ssize_t seconds);  // now - seconds
Bound cutoff_of_minutes(Arg now, Arg minutes);     // now - minutes * 60

// A new list of the records of `evals` that are not older than the cut-off.
Ref records_since(const Names& names, Arg evals, const Bound& cutoff);

// How many records of `evals` passed.
Py_ssize_t passed_count(const Names& names, Arg evals);

// A member of TimeWindow, by its name, as the module's vocabulary has it now.
Ref time_window_member(const ModuleState& state, PyObject* name);

}  // namespace search_analytics
