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

struct Patterns {
    CountTable depths;
    CountTable families;
    Py_ssize_t total_passed = 0;
};

void count_patterns(const ModuleState& state, PyObject* evals, Patterns& patterns) {
    const Names& names = state.names;
    UsageReader reader(state);
    AttributeReader passed_thresholds(names.passed_thresholds);
    AttributeReader tree_depth(names.tree_depth);
    const ReadAhead ahead({&passed_thresholds, &tree_depth}, {reader.metadata(Side::kFunctions)});
    KeySide used;
    for_each_record(evals, ahead, [&](PyObject* ev) {
        const bool passed = truth(passed_thresholds.read(ev).get());
        patterns.total_passed += passed ? 1 : 0;
        patterns.depths.add(tree_depth.read(ev).get(), passed);
        const Ref items = reader.items(ev, Side::kFunctions);
        if (!truth(items.get())) {
            return;
        }
        used.clear();
        for_each(items.get(), [&](PyObject* item) {
            used.add(reader.value(item, names.function_family, Side::kFunctions).get());
        });
        count_families(patterns.families, used, passed);
    });
}

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
    Patterns patterns;
    count_patterns(state, evals.get(), patterns);
    const Ref depths = depth_distribution(state, patterns.depths);
    const Ref families = family_yield_rates(state, patterns.families);
    return make_result(state, depths, families, total_evaluations, patterns.total_passed);
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
