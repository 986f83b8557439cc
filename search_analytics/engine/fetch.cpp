// Fetching the evaluations that an operation looks at: the tracker applies its filters, and the
// rest is filtered here.
#include "engine/fetch.h"

#include <algorithm>
#include <vector>

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
    for_each_record(evals, ReadAhead().flag(submitted), [&](PyObject* ev) {
        if (truth(submitted.read(ev).get())) {
            append(kept, ev);
        }
    });
    return kept;
}

// One filter on what an evaluation used: some item's value under a key has to equal what is wanted.
class UsageFilter {
   public:
    enum class Answer { kNo, kYes, kUnknown };

    UsageFilter(UsageReader& reader, Side side, PyObject* key, PyObject* wanted)
        : reader_(reader), side_(side), key_(key), wanted_(wanted), entry_(key) {}

    // What looking at an evaluation tells, without running code.
    Answer look(PyObject* ev) {
        bool found = false;
        const bool is_enough =
            is_plain_text(wanted_) && reader_.look(ev, side_, entry_, [&](PyObject* value) {
                found = same_text(value, wanted_);
                return !found;
            });
        if (!is_enough) {
            return Answer::kUnknown;
        }
        return found ? Answer::kYes : Answer::kNo;
    }

    bool accepts(PyObject* ev) {
        bool found = false;
        const Ref items = reader_.items(ev, side_);
        for_each_until(items.get(), [&](PyObject* item) {
            const Ref matches = as_generator_body(
                [&] { return comparison(reader_.value(item, key_, side_).get(), wanted_, Py_EQ); });
            found = truth(matches.get());
            return !found;
        });
        return found;
    }

    void read_ahead(ReadAhead& ahead) const { ahead.items(*reader_.metadata(side_), entry_); }

   private:
    UsageReader& reader_;
    Side side_;
    PyObject* key_;
    PyObject* wanted_;
    EntryReader entry_;
};

// The filters on what evaluations used, in the order in which they are asked.
class UsageFilters {
   public:
    UsageFilters(const ModuleState& state, const Filters& filters) : reader_(state) {
        const Names& names = state.names;
        add(Side::kFunctions, names.function_family, filters.function_family);
        add(Side::kFunctions, names.function_subfamily, filters.function_subfamily);
        add(Side::kFeatures, names.feature_family, filters.feature_family);
        add(Side::kFeatures, names.feature_subfamily, filters.feature_subfamily);
    }

    // A new list of the evaluations that pass every filter.
    Ref kept(PyObject* evals) {
        ReadAhead ahead;
        for (const UsageFilter& filter : filters_) {
            filter.read_ahead(ahead);
        }
        Ref kept = new_list();
        const auto look = [&](PyObject* ev) {
            for (UsageFilter& filter : filters_) {
                const UsageFilter::Answer answer = filter.look(ev);
                if (answer != UsageFilter::Answer::kYes) {
                    return answer == UsageFilter::Answer::kNo;
                }
            }
            append(kept, ev);
            return true;
        };
        for_each_record(evals, ahead, look, [&](PyObject* ev) {
            if (std::ranges::all_of(filters_,
                                    [&](UsageFilter& filter) { return filter.accepts(ev); })) {
                append(kept, ev);
            }
        });
        return kept;
    }

    bool any() const { return !filters_.empty(); }

   private:
    void add(Side side, PyObject* key, PyObject* wanted) {
        if (wanted != Py_None) {
            filters_.emplace_back(reader_, side, key, wanted);
        }
    }

    UsageReader reader_;
    std::vector<UsageFilter> filters_;
};

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
    UsageFilters usage_filters(state, filters);
    return usage_filters.any() ? usage_filters.kept(evals.get()) : std::move(evals);
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
