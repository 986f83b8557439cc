// The filters that every analytics operation shares.
#include "engine/filters.h"

#include <array>

namespace search_analytics {

namespace {

// Takes `start` off `text`, if that is how it starts.
consteval bool skip(std::string_view& text, std::string_view start) {
    const bool is_start = text.starts_with(start);
    text.remove_prefix(is_start ? start.size() : 0);
    return is_start;
}

// Whether the parameters are the filters of the table, in its order.
template <std::size_t N>
consteval bool list_filters(std::array<std::string_view, N> parameters) {
    std::size_t piece = 0;
    for (const Filter& filter : kFilters) {
        if (piece == N || !skip(parameters[piece], Names::text_of(filter.name)) ||
            !skip(parameters[piece], "=None")) {
            return false;
        }
        if (parameters[piece].empty()) {
            ++piece;
        } else if (!skip(parameters[piece], ", ")) {
            return false;
        }
    }
    return piece == N;
}

static_assert(list_filters(std::array{kSettingFilterParameters, kUsageFilterParameters,
                                      kPoolFilterParameters}),
              "kFilters and the texts of the parameters differ");

// Adds the filters of `call`, and `eval_pool` in its place among them.
Keywords arguments_of(const Call& call, bool has_eval_pool) {
    const Names& names = call.names();
    Keywords arguments(std::size(kFilters) + 1);
    for (const Filter& filter : kFilters) {
        PyObject* name = names.*filter.name;
        arguments.add(name, call[name]);
        if (has_eval_pool && name == names.metaparameters) {
            arguments.add(names.eval_pool, call[names.eval_pool]);
        }
    }
    return arguments;
}

Ref fetch_with(const Call& call, const Keywords& arguments) {
    const Names& names = call.names();
    return arguments.call(attribute(call[names.self], names._fetch_evaluations));
}

}  // namespace

void validate_eval_type(const Call& call) {
    const Names& names = call.names();
    call_method(call[names.self], names._validate_eval_type, call[names.eval_type]);
}

Keywords filter_arguments(const Call& call) { return arguments_of(call, false); }

Ref fetch(const Call& call) { return fetch_with(call, arguments_of(call, false)); }

Ref fetch_from_pool(const Call& call) { return fetch_with(call, arguments_of(call, true)); }

Ref filters_applied(const Call& call) {
    const Names& names = call.names();
    Ref applied = new_dict();
    for (const bool is_trackers : {true, false}) {
        for (const Filter& filter : kFilters) {
            PyObject* name = names.*filter.name;
            if ((filter.kind == FilterKind::kTracker) == is_trackers && call[name] != Py_None) {
                set_item(applied, name, call[name]);
            }
        }
    }
    return applied;
}

}  // namespace search_analytics
