// What there is: the eras, universes and groupings that the other operations accept.
#include "analytics/questions.h"
#include "names/names.h"

namespace search_analytics {

namespace {

// The tracker's own list, handed on uncopied.
Ref get_available_eras(const Call& call) {
    const Names& names = call.names();
    const Ref tracker = attribute(call[names.self], names._tracker);
    return call_method(tracker, names.get_available_eras);
}

Ref get_available_named_universes(const Call& call) {
    const Names& names = call.names();
    const Ref tracker = attribute(call[names.self], names._tracker);
    return call_method(tracker, names.get_available_named_universes);
}

Ref get_available_aggregations(const Call& call) {
    return list_of(load_global(call.state(), call.names().AggregateBy));
}

}  // namespace

const FunctionDescription kGetAvailableEras = {
    "get_available_eras", "Sorted list of distinct era_id values.", {"self"}, "list",
    get_available_eras,
};

const FunctionDescription kGetAvailableNamedUniverses = {
    "get_available_named_universes",
    "Sorted list of distinct named_universe values.",
    {"self"},
    "list",
    get_available_named_universes,
};

const FunctionDescription kGetAvailableAggregations = {
    "get_available_aggregations",
    "List of all AggregateBy enum values in declaration order.",
    {"self"},
    "list",
    get_available_aggregations,
};

}  // namespace search_analytics
