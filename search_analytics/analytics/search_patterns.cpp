// Where passing candidates come from: depths and function families.
#include "analytics/search_patterns.h"

#include "engine/count_table.h"
#include "engine/filters.h"
#include "engine/group_key.h"
#include "engine/record_maker.h"
#include "host/record_walk.h"

namespace search_analytics {

using namespace host;

namespace {

// Counts every family of the set once. Where several are new, they are numbered in the order in
// which a set holds them.
void count_families(CountTable& families, KeySide& used, bool passed) {
    if (used.is_plain() && families.runs_no_code()) {
        int unknown = 0;
        for (const KeySide::Value& family : used.values()) {
            unknown += families.is_new(family) ? 1 : 0;
        }
        if (unknown < 2) {
            for (const KeySide::Value& family : used.values()) {
                families.add(family, passed);
            }
            return;
        }
    }
    const Ref set = used.frozen();
    for_each(set.get(), [&](PyObject* family) { families.add(family, passed); });
}

// Counts evaluations by depth and by the families of their functions.
class PatternCounter {
   public:
    explicit PatternCounter(const ModuleState& state)
        : names_(state.names),
          usage_(state),
          family_(names_.function_family),
          passed_thresholds_(names_.passed_thresholds),
          tree_depth_(names_.tree_depth) {}

    void add_all(PyObject* evals) {
        const ReadAhead ahead = ReadAhead()
                                    .flag(passed_thresholds_)
                                    .flag(tree_depth_)
                                    .items(*usage_.metadata(Side::kFunctions), family_);
        for_each_record(
            evals, ahead, [&](PyObject* ev) { return look(ev); }, [&](PyObject* ev) { add(ev); });
    }

    const CountTable& depths() const { return depths_; }
    const CountTable& families() const { return families_; }
    Py_ssize_t total_passed() const { return total_passed_; }

   private:
    // Counts a record that can be read by looking.
    bool look(PyObject* ev) {
        PyObject* flag = passed_thresholds_.look(ev);
        PyObject* depth = tree_depth_.look(ev);
        if (flag == nullptr || !PyBool_Check(flag) || depth == nullptr ||
            !depths_.runs_no_code_with(depth) || !families_.runs_no_code() ||
            !used_.look(usage_, ev, Side::kFunctions, family_)) {
            return false;
        }
        const bool passed = flag == Py_True;
        total_passed_ += passed ? 1 : 0;
        depths_.add(depth, passed);
        count_families(families_, used_, passed);
        return true;
    }

    void add(PyObject* ev) {
        const bool passed = truth(passed_thresholds_.read(ev).get());
        total_passed_ += passed ? 1 : 0;
        depths_.add(tree_depth_.read(ev).get(), passed);
        const Ref items = usage_.items(ev, Side::kFunctions);
        if (!truth(items.get())) {
            return;
        }
        used_.clear();
        for_each(items.get(), [&](PyObject* item) {
            used_.add(usage_.value(item, names_.function_family, Side::kFunctions).get());
        });
        count_families(families_, used_, passed);
    }

    const Names& names_;
    UsageReader usage_;
    EntryReader family_;
    AttributeReader passed_thresholds_;
    AttributeReader tree_depth_;
    KeySide used_;
    CountTable depths_;
    CountTable families_;
    Py_ssize_t total_passed_ = 0;
};

// One record of a key and its counts.
Ref make_yield(const RecordMaker& maker, const Names& names, PyObject* key_name, PyObject* key,
               const PassCounts& counts) {
    const Ref total = integer(counts.total);
    const Ref passed = integer(counts.passed);
    const Ref rate = real(counts.yield_rate());
    return maker.make({{key_name, key},
                       {names.total, total.get()},
                       {names.passed, passed.get()},
                       {names.yield_rate, rate.get()}});
}

Ref depth_distribution(const ModuleState& state, const CountTable& depths) {
    const RecordMaker maker(state, state.names.DepthBucket);
    const Ref ordered = depths.keys();
    check(PyList_Sort(ordered.get()));
    Ref buckets = new_list();
    for_each(ordered.get(), [&](PyObject* depth) {
        const Ref bucket =
            make_yield(maker, state.names, state.names.depth, depth, depths.counts(depth));
        append(buckets, bucket.get());
    });
    return buckets;
}

Ref negated_yield_rate(const Call& call) {
    return negative(attribute(call[call.names().row], call.names().yield_rate).get());
}

const FunctionDescription kYieldOrder = {"<lambda>", {}, {"row"}, {}, negated_yield_rate};

Ref family_yield_rates(ModuleState& state, const CountTable& families) {
    const RecordMaker maker(state, state.names.FamilyYield);
    Ref yields = new_list();
    families.for_each([&](PyObject* family, const PassCounts& counts) {
        const Ref yield =
            make_yield(maker, state.names, state.names.function_family, family, counts);
        append(yields, yield.get());
    });
    sort_by(state, yields, make_function(state, kYieldOrder).get());
    return yields;
}

Ref make_result(const ModuleState& state, const Ref& depths, const Ref& families,
                Py_ssize_t total_evaluations, Py_ssize_t total_passed) {
    const Names& names = state.names;
    const Ref evaluations = integer(total_evaluations);
    const Ref passed = integer(total_passed);
    return RecordMaker(state, names.SearchPatternsResult)
        .make({{names.depth_distribution, depths.get()},
               {names.family_yield_rates, families.get()},
               {names.total_evaluations, evaluations.get()},
               {names.total_passed, passed.get()}});
}

Ref get_search_patterns(const Call& call) {
    ModuleState& state = call.state();
    const Names& names = state.names;
    const Filters filters(call);
    filters.validate_eval_type(state, call[names.self]);
    const Ref evals = filters.fetch(state, call[names.self], call[names.eval_pool]);
    const Py_ssize_t total_evaluations = length(evals.get());
    if (total_evaluations == 0) {
        return make_result(state, new_list(), new_list(), 0, 0);
    }
    PatternCounter counter(state);
    counter.add_all(evals.get());
    const Ref depths = depth_distribution(state, counter.depths());
    const Ref families = family_yield_rates(state, counter.families());
    return make_result(state, depths, families, total_evaluations, counter.total_passed());
}

}  // namespace

const FunctionDescription kGetSearchPatterns = {
    "get_search_patterns",
    "Depth distribution and family yield analysis.",
    {"self", kHistoryFilterParameters, kPoolFilterParameters, "eval_pool=EvalPool.ALL"},
    "SearchPatternsResult",
    get_search_patterns,
};

}  // namespace search_analytics
