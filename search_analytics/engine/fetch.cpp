// Fetching the evaluations that an operation looks at: the tracker applies its filters, and the
// rest is filtered here.
#include <algorithm>

#include "engine/filters.h"
#include "engine/functions.h"
#include "engine/usage.h"
#include "facade/traceback.h"

namespace search_analytics {

namespace {

// The pool filters as the tracker is given them.
struct PoolFilters {
    PyObject* signal_pool_id;
    PyObject* strategy_signal_pool;
};

// A filter on signal pools, asked of strategies, means the strategies built on that pool.
PoolFilters alias_pools(const Call& call) {
    const Names& names = call.names();
    PoolFilters pools = {call[names.signal_pool_id], call[names.strategy_signal_pool]};
    if (pools.strategy_signal_pool == Py_None && pools.signal_pool_id != Py_None) {
        pools.strategy_signal_pool = pools.signal_pool_id;
        if (equal(call[names.eval_type], names.strategy)) {
            pools.signal_pool_id = Py_None;
        }
    }
    return pools;
}

Ref evaluation_history(const Call& call, const PoolFilters& pools, const Ref& passed_only) {
    const Names& names = call.names();
    const auto value_of = [&](PyObject* name) {
        if (name == names.signal_pool_id) {
            return pools.signal_pool_id;
        }
        return name == names.strategy_signal_pool ? pools.strategy_signal_pool : call[name];
    };
    const Ref tracker = attribute(call[names.self], names._tracker);
    const Ref history = attribute(tracker, names.get_evaluation_history);
    Keywords arguments(std::size(kFilters));
    for (const Filter& filter : kFilters) {
        PyObject* name = names.*filter.name;
        if (filter.kind == FilterKind::kTracker) {
            arguments.add(name, value_of(name));
        }
        if (name == names.eval_type) {
            arguments.add(names.passed_only, passed_only.copy());
            arguments.add(names.limit, load_global(call.state(), names.history_limit));
        }
    }
    return arguments.call(history);
}

Ref submitted_only(const Names& names, Arg evals) {
    Flag submitted(names.submitted);
    Ref kept = new_list();
    const auto count = [&](auto ev) {
        if (submitted(ev)) {
            append(kept, ev.record);
        }
    };
    for_each_evaluation(evals, count, submitted);
    return kept;
}

// What tracebacks show of the expression that compares the items.
constexpr InnerFunction kMatches = {"<genexpr>", "SearchAnalytics._fetch_evaluations.<locals>"};

// One filter on what an evaluation used: some item's value under a key has to equal what is wanted.
class UsageFilter {
   public:
    UsageFilter(const ModuleState& state, UsageReader& usage, Side side, PyObject* key,
                PyObject* wanted)
        : state_(state),
          usage_(usage),
          side_(side),
          key_(key),
          wanted_(wanted),
          wanted_is_str_(is_exact_str(wanted)),
          entry_(key) {}

    enum class Answer { kNo, kYes, kUnknown };

    // What peeking at an evaluation tells. Where one filter says no, the next is not asked, and
    // what it would read is not read: an answer is worth something before all filters have one, and
    // peeking has three answers where asking has two.
    Answer peek(const View& view) {
        bool found = false;
        const bool is_enough =
            wanted_is_str_ && usage_.peek(view, side_, entry_, [&](PyObject* value) {
                found = same_text(value, wanted_);
                return !found;
            });
        if (!is_enough) {
            return Answer::kUnknown;
        }
        return found ? Answer::kYes : Answer::kNo;
    }

    bool ask(PyObject* ev) {
        bool found = false;
        for_each_until(usage_.items(ev, side_), [&](PyObject* item) {
            note_work(wanted_is_str_ ? text_length(wanted_) : 0);
            found = truth(in_generator(state_, kMatches, [&] {
                return comparison(usage_.value(item, key_, side_), wanted_, Py_EQ);
            }));
            return !found;
        });
        return found;
    }

    bool turn_to(PyObject* record) { return usage_.turn_to(record, side_); }
    void read_ahead(ReadAhead& ahead) const { ahead.add_items(usage_.metadata(side_), entry_); }

   private:
    const ModuleState& state_;
    UsageReader& usage_;
    Side side_;
    PyObject* key_;
    PyObject* wanted_;
    bool wanted_is_str_;
    Entry entry_;
};

// A field: whether an evaluation passes every filter on what it used, in the order of the filters.
class UsageFilters {
   public:
    explicit UsageFilters(const Call& call) : usage_(call.state()) {
        const Names& names = call.names();
        for (const Filter& filter : kFilters) {
            PyObject* name = names.*filter.name;
            if (filter.kind != FilterKind::kTracker && call[name] != Py_None) {
                const bool is_function = filter.kind == FilterKind::kFunctions;
                filters_.emplace_back(call.state(), usage_,
                                      is_function ? Side::kFunctions : Side::kFeatures, name,
                                      call[name]);
            }
        }
    }

    bool any() const { return !filters_.empty(); }

    bool peek(const View& view) {
        for (UsageFilter& filter : filters_) {
            const UsageFilter::Answer answer = filter.peek(view);
            if (answer != UsageFilter::Answer::kYes) {
                passes_ = false;
                return answer == UsageFilter::Answer::kNo;
            }
        }
        passes_ = true;
        return true;
    }

    bool operator()(Peeked) const { return passes_; }
    bool operator()(Asked ev) {
        return std::ranges::all_of(filters_,
                                   [&](UsageFilter& filter) { return filter.ask(ev.record); });
    }

    void refresh() { usage_.refresh(); }

    // The first filter has to know its place; the others may never have been reached.
    bool turn_to(PyObject* record) {
        const bool knows_first = filters_.front().turn_to(record);
        for (UsageFilter& filter : filters_) {
            filter.turn_to(record);
        }
        return knows_first;
    }
    void read_ahead(ReadAhead& ahead) const {
        for (const UsageFilter& filter : filters_) {
            filter.read_ahead(ahead);
        }
    }

   private:
    UsageReader usage_;
    std::vector<UsageFilter> filters_;
    bool passes_ = false;
};

Ref fetch_evaluations(const Call& call) {
    const ModuleState& state = call.state();
    const Names& names = state.names();
    PyObject* eval_pool = call[names.eval_pool];
    const PoolFilters pools = alias_pools(call);
    const auto pool_member = [&](PyObject* name) {
        return attribute(load_global(state, names.EvalPool), name);
    };
    const Ref passed_only = comparison(eval_pool, pool_member(names.PASSED), Py_EQ);
    Ref evals = evaluation_history(call, pools, passed_only);
    if (equal(eval_pool, pool_member(names.SUBMITTED))) {
        evals = submitted_only(names, evals);
    }
    UsageFilters passes(call);
    if (!passes.any()) {
        return evals;
    }
    Ref kept = new_list();
    const auto count = [&](auto ev) {
        if (passes(ev)) {
            append(kept, ev.record);
        }
    };
    for_each_evaluation(evals, count, passes);
    return kept;
}

}  // namespace

const FunctionDescription kFetchEvaluations = {
    "_fetch_evaluations",
    "Return the evaluation records that pass every filter, in the tracker's order.",
    {"self", kSettingFilterParameters, "eval_pool=EvalPool.ALL", kUsageFilterParameters,
     kPoolFilterParameters},
    {},
    fetch_evaluations,
};

}  // namespace search_analytics
