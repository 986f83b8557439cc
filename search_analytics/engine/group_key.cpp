// Group keys: which functions and features an evaluation used, at one granularity.
#include "engine/group_key.h"

#include "engine/functions.h"
#include "facade/statement.h"
#include "facade/traceback.h"

namespace search_analytics {

namespace {

constexpr std::string_view kClassName = "SearchAnalytics";

// What tracebacks show of the expression that collects the values.
constexpr InnerFunction kValues = {"<genexpr>", "SearchAnalytics._build_group_key.<locals>"};

// The set of `_usage_value(item, key, ...)` over the items of a record.
void collect(const ModuleState& state, UsageReader& usage, PyObject* record, Side side, Arg key,
             NameSet& names) {
    names.clear();
    for_each(usage.items(record, side), [&](PyObject* item) {
        names.add(in_generator(state, kValues, [&] { return usage.value(item, key, side); }));
    });
}

bool is_pair_of_str(const Ref& value) {
    return !value.empty() && is_exact_tuple(value) && tuple_size(value) == 2 &&
           is_exact_str(tuple_item(value, 0)) && is_exact_str(tuple_item(value, 1));
}

Ref build_group_key(const Call& call) {
    ModuleState& state = call.state();
    PyObject* record = call[state.names().ev];
    const Granularity granularity = granularity_of(state, call[state.names().aggregate_by]);
    UsageReader usage(state);
    NameSet functions;
    NameSet features;
    collect(state, usage, record, Side::kFunctions, granularity.function_key, functions);
    collect(state, usage, record, Side::kFeatures, granularity.feature_key, features);
    const Ref function_side = functions.frozen();
    const Ref feature_side = features.frozen();
    return tuple_of(function_side, feature_side);
}

}  // namespace

Granularity granularity_of(ModuleState& state, Arg aggregate_by) {
    const Names& names = state.names();
    const Ref vocabulary = load_global(state, names.AggregateBy);
    if (equal(aggregate_by, attribute(vocabulary, names.NONE))) {
        return {Ref::share(names.function_name), Ref::share(names.feature_name), true};
    }
    const auto [function_level, feature_level] =
        unpack_pair(state, attribute(aggregate_by, names.value));
    Granularity granularity;
    granularity.function_key = item(load_global(state, names.function_key_map), function_level);
    granularity.feature_key = item(load_global(state, names.feature_key_map), feature_level);
    return granularity;
}

const Granularity& GranularityCache::now() {
    if (!has_same_levels()) {
        granularity_ = granularity_of(state_, aggregate_by_);
        learn();
    } else if (!granularity_.is_by_name && !has_same_maps()) {
        granularity_.function_key = look_up(function_map_, 0);
        granularity_.feature_key = look_up(feature_map_, 1);
    }
    return granularity_;
}

// The item key of one of the two levels, as its key map has it now.
Ref GranularityCache::look_up(const KeyMap& map, Py_ssize_t level) const {
    return item(load_global(state_, map.name), tuple_item(levels_, level));
}

// The member's pair of levels, or an empty Ref. REQUIRES: has_plain_names(the member).
Ref GranularityCache::own_levels() const {
    assert(has_plain_names(aggregate_by_));
    return own_attribute(aggregate_by_, state_.names()._value_);
}

// Notes what the granularity was worked out from, if it can be relied on.
void GranularityCache::learn() {
    PyObject* enumeration = type_of(aggregate_by_);
    PyObject* metaclass = type_of(enumeration);
    is_known_ = vocabulary_.is_original() && is_bound(state_, vocabulary_.name(), enumeration) &&
                is_as_made(state_, enumeration) && is_as_made(state_, metaclass) &&
                class_version(enumeration) != 0 && class_version(metaclass) != 0 &&
                has_plain_names(aggregate_by_);
    // Only of such a member: reading it from anything else may run code.
    levels_ = is_known_ ? own_levels() : Ref();
    is_known_ = is_known_ && (granularity_.is_by_name || is_pair_of_str(levels_));
    member_ = Shape(aggregate_by_);
    metaclass_ = Shape(enumeration);
    if (is_known_) {
        value_.learn_by_peeking(aggregate_by_);
    }
}

bool GranularityCache::has_same_levels() {
    if (!is_known_ || !member_.fits(aggregate_by_) || !metaclass_.fits(type_of(aggregate_by_)) ||
        !vocabulary_.is_original()) {
        return false;
    }
    if (PyObject* levels = value_.peek(aggregate_by_); levels != nullptr) {
        return levels == levels_.get();
    }
    return has_plain_names(aggregate_by_) && own_levels().get() == levels_.get();
}

// Whether a key map holds the item key of a level still, and finding that out runs no code.
bool GranularityCache::is_same(KeyMap& seen, Py_ssize_t level, const Ref& key) const {
    const std::uint64_t globals_version = compat::dict_version(state_.globals());
    if (seen.version != 0 && seen.globals_version == globals_version &&
        seen.version == compat::dict_version(seen.map.get())) {
        return true;
    }
    auto map = dict_entry(state_.globals(), seen.name);
    if (!map || Entry(tuple_item(levels_, level)).peek(map->get()) != key.get()) {
        return false;
    }
    seen.version = compat::dict_version(map->get());
    seen.globals_version = globals_version;
    seen.map = std::move(*map);
    return true;
}

// Whether the item keys would be found in the key maps again, without running code for it.
bool GranularityCache::has_same_maps() {
    return is_same(function_map_, 0, granularity_.function_key) &&
           is_same(feature_map_, 1, granularity_.feature_key);
}

bool GranularityCache::is_unchanged_and_exact() {
    return has_same_levels() && (granularity_.is_by_name || has_same_maps());
}

bool GroupKey::peek(const View& view) {
    assert(may_peek_);
    return usage_.peek_names(view, Side::kFunctions, function_entry_, functions_) &&
           usage_.peek_names(view, Side::kFeatures, feature_entry_, features_);
}

std::size_t GroupKey::operator()(Asked ev) {
    if (!method_.is_surely_original()) {
        const Ref method = attribute(engine_, state_.names()._build_group_key);
        if (!method_.is_original(method)) {
            return groups_.number_of(call(method, ev.record, aggregate_by_));
        }
    }
    in_place_of(state_, {kBuildGroupKey, kClassName}, [&] {
        const Granularity& granularity = granularity_.now();
        collect(state_, usage_, ev.record, Side::kFunctions, granularity.function_key, functions_);
        collect(state_, usage_, ev.record, Side::kFeatures, granularity.feature_key, features_);
    });
    return groups_.number_of(functions_, features_);
}

bool GroupKey::turn_to(PyObject* record) {
    return usage_.turn_to(record, Side::kFunctions) && usage_.turn_to(record, Side::kFeatures);
}

void GroupKey::read_ahead(ReadAhead& ahead) const {
    ahead.add_items(usage_.metadata(Side::kFunctions), function_entry_);
    ahead.add_items(usage_.metadata(Side::kFeatures), feature_entry_);
}

void GroupKey::refresh() {
    usage_.refresh();
    may_peek_ =
        method_.is_surely_original() && groups_.is_exact() && granularity_.is_unchanged_and_exact();
    if (may_peek_) {
        function_entry_.set_key(granularity_.last().function_key.get());
        feature_entry_.set_key(granularity_.last().feature_key.get());
    }
}

const FunctionDescription kBuildGroupKey = {
    "_build_group_key",
    "Return the (functions, features) pair of frozensets that a record is grouped under.",
    {"self, ev, aggregate_by"},
    {},
    build_group_key,
};

}  // namespace search_analytics
