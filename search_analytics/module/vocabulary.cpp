// The words that callers and code share: enumerations, key maps and constants.
#include "facade/statement.h"
#include "module/steps.h"
#include "names/names.h"

namespace search_analytics {

namespace {

using Members = std::vector<std::pair<std::string_view, Ref>>;

struct Aggregation {
    std::string_view member;
    std::string_view function_level;
    std::string_view feature_level;
};

// From coarse to fine on either side.
constexpr Aggregation kAggregations[] = {
    {"FUNCTION_FAMILY_FEATURE_FAMILY", "function_family", "feature_family"},
    {"FUNCTION_FAMILY_FEATURE_SUBFAMILY", "function_family", "feature_subfamily"},
    {"FUNCTION_FAMILY_FEATURE", "function_family", "feature"},
    {"FUNCTION_SUBFAMILY_FEATURE_FAMILY", "function_subfamily", "feature_family"},
    {"FUNCTION_SUBFAMILY_FEATURE_SUBFAMILY", "function_subfamily", "feature_subfamily"},
    {"FUNCTION_SUBFAMILY_FEATURE", "function_subfamily", "feature"},
    {"FUNCTION_FEATURE_FAMILY", "function", "feature_family"},
    {"FUNCTION_FEATURE_SUBFAMILY", "function", "feature_subfamily"},
    {"FUNCTION_FEATURE", "function", "feature"},
};

struct TextMember {
    std::string_view member;
    std::string_view value;
};

constexpr TextMember kEvalPools[] = {
    {"ALL", "all"}, {"PASSED", "passed"}, {"SUBMITTED", "submitted"}};

constexpr TextMember kTimeWindows[] = {
    {"LIFETIME", "lifetime"}, {"ERA", "era"}, {"LAST_WEEK", "last_week"}, {"LAST_24H", "last_24h"}};

Members aggregation_members() {
    Members members;
    for (const Aggregation& aggregation : kAggregations) {
        members.emplace_back(aggregation.member, tuple_of(interned_str(aggregation.function_level),
                                                          interned_str(aggregation.feature_level)));
    }
    members.emplace_back("NONE", Ref::none());
    return members;
}

template <std::size_t N>
Members text_members(const TextMember (&list)[N]) {
    Members members;
    for (const TextMember& entry : list) {
        members.emplace_back(entry.member, interned_str(entry.value));
    }
    return members;
}

}  // namespace

void bind_enumerations(const ModuleState& state) {
    const Names& names = state.names();
    bind_global(
        state, names.AggregateBy,
        make_enumeration(state, "AggregateBy",
                         "Aggregation dimension for search stats.\n\n"
                         "    Each member defines a (function_level, feature_level) pair that "
                         "determines\n    how evaluation functions and features are grouped.\n"
                         "    ",
                         aggregation_members()));
    bind_global(state, names.EvalPool,
                make_enumeration(state, "EvalPool", "Which evaluations to include.",
                                 text_members(kEvalPools)));
    bind_global(state, names.TimeWindow,
                make_enumeration(state, "TimeWindow", "Time window for filtering evaluations.",
                                 text_members(kTimeWindows)));
}

void bind_key_maps(const ModuleState& state) {
    const Names& names = state.names();
    const Ref function_keys = new_dict();
    set_item(function_keys, names.function_family, names.function_family);
    set_item(function_keys, names.function_subfamily, names.function_subfamily);
    set_item(function_keys, names.function, names.function_name);
    bind_global(state, names.function_key_map, function_keys);

    const Ref feature_keys = new_dict();
    set_item(feature_keys, names.feature_family, names.feature_family);
    set_item(feature_keys, names.feature_subfamily, names.feature_subfamily);
    set_item(feature_keys, names.feature, names.feature_name);
    bind_global(state, names.feature_key_map, feature_keys);
}

}  // namespace search_analytics
