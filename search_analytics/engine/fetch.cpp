// Fetching the evaluations that an operation looks at: the tracker applies its filters, and the
// rest is filtered here.
#include "engine/fetch.h"

#include "engine/filters.h"
#include "engine/usage.h"
#include "host/record_walk.h"

namespace search_analytics {

using namespace host;

namespace {

// A filter on signal pools, asked of strategies, means the strategies built on that pool.
void alias_pools(const Names& names, Filters& filters) {
    if (filters.strategy_signal_pool == Py_None && filters.signal_pool_id != Py_None) {
        filters.strategy_signal_pool = filters.signal_pool_id;
        if (equal(filters.eval_type, names.strategy)) {
            filters.signal_pool_id = Py_None;
        }
    }
}

Ref evaluation_history(const ModuleState& state, PyObject* engine, const Filters& filters,
                       PyObject* passed_only) {
    const Names& names = state.names;
    const Ref tracker = attribute(engine, names._tracker);
    const Ref history = attribute(tracker.get(), names.get_evaluation_history);
    Keywords arguments(9);
    arguments.add(names.era_id, filters.era_id);
    arguments.add(names.eval_type, filters.eval_type);
    arguments.add(names.passed_only, passed_only);
    arguments.add(names.limit, load_global(state, names.history_limit));
    arguments.add(names.named_universe, filters.named_universe);
    arguments.add(names.metaparameters, filters.metaparameters);
    arguments.add(names.strategy_pool_id, filters.strategy_pool_id);
    arguments.add(names.signal_pool_id, filters.signal_pool_id);
    arguments.add(names.strategy_signal_pool, filters.strategy_signal_pool);
    return arguments.call(history.get());
}

Ref submitted_only(const Names& names, PyObject* evals) {
    AttributeReader submitted(names.submitted);
    Ref kept = new_list();
    for_each_record(evals, ReadAhead({&submitted}), [&](PyObject* ev) {
        if (truth(submitted.read(ev).get())) {
            append(kept, ev);
        }
    });
    return kept;
}

// One filter on what an evaluation used: some item's value under `key` has to equal `wanted`.
struct UsageFilter {
    Side side;
    PyObject* key;
    PyObject* wanted;

    bool is_set() const { return wanted != Py_None; }

    bool accepts(UsageReader& reader, PyObject* ev) const {
        bool found = false;
        const Ref items = reader.items(ev, side);
        for_each_until(items.get(), [&](PyObject* item) {
            const Ref matches = as_generator_body(
                [&] { return comparison(reader.value(item, key, side).get(), wanted, Py_EQ); });
            found = truth(matches.get());
            return !found;
        });
        return found;
    }
};

Ref filtered_by_usage(const ModuleState& state, const Filters& filters, Ref evals) {
    const Names& names = state.names;
    const UsageFilter usage_filters[] = {
        {Side::kFunctions, names.function_family, filters.function_family},
        {Side::kFunctions, names.function_subfamily, filters.function_subfamily},
        {Side::kFeatures, names.feature_family, filters.feature_family},
        {Side::kFeatures, names.feature_subfamily, filters.feature_subfamily},
    };
    bool any_set = false;
    for (const UsageFilter& filter : usage_filters) {
        any_set = any_set || filter.is_set();
    }
    if (!any_set) {
        return evals;
    }
    UsageReader reader(state);
    const ReadAhead ahead({}, {reader.metadata(Side::kFunctions)});
    Ref kept = new_list();
    for_each_record(evals.get(), ahead, [&](PyObject* ev) {
        for (const UsageFilter& filter : usage_filters) {
            if (filter.is_set() && !filter.accepts(reader, ev)) {
                return;
            }
        }
        append(kept, ev);
    });
    return kept;
}

Ref fetch_evaluations(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names;
    PyObject* eval_pool = call[names.eval_pool];
    Filters filters(call);
    alias_pools(names, filters);
    const Ref pools = load_global(state, names.EvalPool);
    const Ref passed_only =
        comparison(eval_pool, attribute(pools.get(), names.PASSED).get(), Py_EQ);
    Ref evals = evaluation_history(state, call[names.self], filters, passed_only.get());
    const Ref pools_now = load_global(state, names.EvalPool);
    if (equal(eval_pool, attribute(pools_now.get(), names.SUBMITTED).get())) {
        evals = submitted_only(names, evals.get());
    }
    return filtered_by_usage(state, filters, std::move(evals));
}

}  // namespace

const FunctionDescription kFetchEvaluations = {
    "_fetch_evaluations",
    "Return the evaluation records that pass every filter, in the tracker's order.",
    {"self, era_id=None, eval_type=None, named_universe=None, metaparameters=None, "
     "eval_pool=EvalPool.ALL, function_family=None, function_subfamily=None, feature_family=None, "
     "feature_subfamily=None",
     kPoolFilterParameters},
    {},
    fetch_evaluations,
};

}  // namespace search_analytics
