// Where passing candidates come from: depths and function families.
#include "analytics/questions.h"
#include "engine/filters.h"
#include "engine/usage.h"
#include "facade/record_maker.h"
#include "tables/count_table.h"

namespace search_analytics {

namespace {

struct PatternCounts {
    CountTable depths;
    CountTable families;
    Py_ssize_t total_passed = 0;
};

// Counts evaluations by depth, and by the families of their functions: each family once.
PatternCounts count_patterns(const ModuleState& state, Arg evals) {
    const Names& names = state.names();
    UsageReader usage(state);
    Flag passed(names.passed_thresholds);
    Key depth(names.tree_depth);
    UsedNames families(
        usage, Side::kFunctions, names.function_family, [&](PyObject* ev, NameSet& set) {
            const Ref items = usage.items(ev, Side::kFunctions);
            if (truth(items)) {
                for_each(items, [&](PyObject* item) {
                    set.add(usage.value(item, names.function_family, Side::kFunctions));
                });
            }
        });
    PatternCounts counts;
    const auto may_peek = [&] { return counts.depths.is_exact() && counts.families.is_exact(); };
    const auto count = [&](auto ev) {
        const bool is_pass = passed(ev);
        counts.total_passed += is_pass ? 1 : 0;
        counts.depths.add(depth(ev), is_pass);
        return counts.families.add_each(families(ev), is_pass);
    };
    for_each_evaluation(evals, may_peek, count, passed, depth, families);
    return counts;
}

// One record of a key and its counts.
Ref make_yield(RecordMaker& maker, const Names& names, PyObject* key_name, Arg key,
               const PassCounts& counts) {
    return maker.make({{key_name, key.get()},
                       {names.total, counts.total},
                       {names.passed, counts.passed},
                       {names.yield_rate, counts.yield_rate()}});
}

Ref depth_distribution(const ModuleState& state, const CountTable& depths) {
    RecordMaker maker(state, state.names().DepthBucket);
    Ref buckets = new_list();
    for_each(depths.sorted_keys(), [&](PyObject* depth) {
        const PassCounts counts = depths.counts(depth);
        append(buckets, make_yield(maker, state.names(), state.names().depth, depth, counts));
    });
    return buckets;
}

Ref negated_yield_rate(const Call& call) {
    return negative(attribute(call[call.names().row], call.names().yield_rate));
}

const FunctionDescription kYieldOrder = {"<lambda>", {}, {"row"}, {}, negated_yield_rate};

Ref family_yield_rates(ModuleState& state, const CountTable& families) {
    const Names& names = state.names();
    RecordMaker maker(state, names.FamilyYield);
    Ref yields = new_list();
    families.for_each_key([&](PyObject* family, const PassCounts& counts) {
        append(yields, make_yield(maker, names, names.function_family, family, counts));
    });
    sort_by(state, yields,
            make_method(state, kYieldOrder, "SearchAnalytics.get_search_patterns.<locals>"));
    return yields;
}

Ref make_result(const ModuleState& state, const Ref& depths, const Ref& families,
                Py_ssize_t total_evaluations, Py_ssize_t total_passed) {
    const Names& names = state.names();
    return RecordMaker(state, names.SearchPatternsResult)
        .make({{names.depth_distribution, depths},
               {names.family_yield_rates, families},
               {names.total_evaluations, total_evaluations},
               {names.total_passed, total_passed}});
}

Ref get_search_patterns(const Call& call) {
    ModuleState& state = call.state();
    validate_eval_type(call);
    const Ref evals = fetch_from_pool(call);
    const Py_ssize_t total_evaluations = length(evals);
    if (total_evaluations == 0) {
        return make_result(state, new_list(), new_list(), 0, 0);
    }
    const PatternCounts counts = count_patterns(state, evals);
    const Ref depths = depth_distribution(state, counts.depths);
    const Ref families = family_yield_rates(state, counts.families);
    return make_result(state, depths, families, total_evaluations, counts.total_passed);
}

}  // namespace

const RecordDescription kDepthBucket = {
    "DepthBucket",
    "Depth distribution bucket.",
    {{"depth", "int", Default::kZero},
     {"total", "int", Default::kZero},
     {"passed", "int", Default::kZero},
     {"yield_rate", "float", Default::kZeroReal}},
};

const RecordDescription kFamilyYield = {
    "FamilyYield",
    "Yield for a function family.",
    {{"function_family", "str", Default::kEmptyText},
     {"total", "int", Default::kZero},
     {"passed", "int", Default::kZero},
     {"yield_rate", "float", Default::kZeroReal}},
};

const RecordDescription kSearchPatternsResult = {
    "SearchPatternsResult",
    "Result from get_search_patterns().",
    {{"depth_distribution", "List[DepthBucket]", Default::kList},
     {"family_yield_rates", "List[FamilyYield]", Default::kList},
     {"total_evaluations", "int", Default::kZero},
     {"total_passed", "int", Default::kZero}},
};

const FunctionDescription kGetSearchPatterns = {
    "get_search_patterns",
    "Depth distribution and family yield analysis.",
    {"self", kSettingFilterParameters, kUsageFilterParameters, kPoolFilterParameters,
     "eval_pool=EvalPool.ALL"},
    "SearchPatternsResult",
    get_search_patterns,
};

}  // namespace search_analytics
