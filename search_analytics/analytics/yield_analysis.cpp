// How well the search runs: yield, usefulness and tampering.
#include "analytics/yield_analysis.h"

#include "engine/filters.h"
#include "engine/record_maker.h"
#include "engine/time_window.h"
#include "engine/yield_scan.h"
#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

// With fewer recent evaluations than this, their yield says nothing of a trend.
constexpr Py_ssize_t kFewestForTrend = 10;

// The pass rates over all evaluations and over the recent ones.
struct Yield {
    Py_ssize_t total = 0;
    Py_ssize_t passed = 0;
    Py_ssize_t recent_total = 0;
    double lifetime_rate = 0.0;
    double recent_rate = 0.0;

    const char* trend() const {
        if (recent_total < kFewestForTrend) {
            return "insufficient_data";
        }
        if (recent_rate > lifetime_rate * 1.2) {
            return "improving";
        }
        return recent_rate < lifetime_rate * 0.8 ? "declining" : "stable";
    }

    // Whatever the trend: an empty recent window counts as a rate of 0.
    bool diminishing_returns() const { return recent_rate < lifetime_rate * 0.5; }
};

void require_positive_window(PyObject* minutes) {
    if (compare(minutes, integer(0).get(), Py_LE)) {
        raise(PyExc_ValueError,
              format("recent_window_minutes must be positive, got %U.", text(minutes).get()));
    }
}

void measure_recent(const ModuleState& state, PyObject* evals, PyObject* minutes, Yield& yield) {
    const Ref now = current_time(state);
    const Ref seconds = multiply(minutes, integer(60).get());
    const Cutoff cutoff(subtract(now.get(), seconds.get()));
    const Ref recent = records_since(state.names, evals, cutoff);
    yield.recent_total = list_size(recent);
    const Py_ssize_t passed = passed_count(state.names, recent.get());
    yield.recent_rate = yield.recent_total == 0 ? 0.0 : ratio(passed, yield.recent_total);
}

Ref make_result(const Call& call, const Yield& yield, const Findings& findings) {
    const Names& names = call.names();
    const Ref lifetime = real(yield.lifetime_rate);
    const Ref recent = real(yield.recent_rate);
    const Ref trend = unicode(yield.trend());
    const Ref total = integer(yield.total);
    const Ref passed = integer(yield.passed);
    const Ref diminishing = boolean(yield.diminishing_returns());
    const Ref useful = integer(findings.useful);
    const Ref not_useful = integer(findings.not_useful);
    const Ref unknown = integer(findings.unknown);
    const Ref candidates = integer(list_size(findings.tamper_candidates));
    return RecordMaker(call.state(), names.YieldAnalysisResult)
        .make({{names.lifetime_yield_rate, lifetime.get()},
               {names.recent_yield_rate, recent.get()},
               {names.trend, trend.get()},
               {names.recent_window_minutes, call[names.recent_window_minutes]},
               {names.total_evaluations, total.get()},
               {names.total_passed, passed.get()},
               {names.diminishing_returns, diminishing.get()},
               {names.useful_evaluations, useful.get()},
               {names.not_useful_evaluations, not_useful.get()},
               {names.usefulness_unknown_evaluations, unknown.get()},
               {names.tamper_candidate_count, candidates.get()},
               {names.usefulness_rationale, findings.rationale.get()},
               {names.tamper_candidates, findings.tamper_candidates.get()}});
}

Ref get_yield_analysis(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names;
    PyObject* self = call[names.self];
    PyObject* recent_minutes = call[names.recent_window_minutes];
    const Filters filters(call);
    filters.validate_eval_type(state, self);
    require_positive_window(recent_minutes);
    const Ref evals = filters.fetch(state, self, nullptr);

    Yield yield;
    Findings findings;
    yield.total = length(evals.get());
    const Py_ssize_t passed = passed_count(names, evals.get());
    if (yield.total == 0) {
        return make_result(call, yield, findings);
    }
    yield.passed = passed;
    yield.lifetime_rate = ratio(yield.passed, yield.total);
    measure_recent(state, evals.get(), recent_minutes, yield);
    scan_evaluations(state, self, evals.get(), findings);
    return make_result(call, yield, findings);
}

}  // namespace

const FunctionDescription kGetYieldAnalysis = {
    "get_yield_analysis",
    "Era-level and family-level yield breakdown.",
    {"self", kHistoryFilterParameters, "recent_window_minutes=360", kPoolFilterParameters},
    "YieldAnalysisResult",
    get_yield_analysis,
};

}  // namespace search_analytics
