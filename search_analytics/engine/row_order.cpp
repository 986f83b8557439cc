// The order of statistics rows.
#include "engine/row_order.h"

#include <algorithm>
#include <cmath>

#include "facade/record_maker.h"
#include "names/names.h"
#include "python/turns.h"

namespace search_analytics {

namespace {

// row.windows[0].composite_score
Ref first_score(const Names& names, Arg row) {
    const Ref windows = attribute(row, names.windows);
    return attribute(item(windows, 0), names.composite_score);
}

Ref sort_key(const Names& names, Arg row, Direction direction) {
    Ref score = first_score(names, row);
    if (direction == Direction::kDescending) {
        score = negative(score);
    }
    const Ref count = negative(attribute(row, names.evaluation_count));
    return tuple_of(score, count);
}

Ref ascending_key(const Call& call) {
    return sort_key(call.names(), call[call.names().row], Direction::kAscending);
}

Ref descending_key(const Call& call) {
    return sort_key(call.names(), call[call.names().row], Direction::kDescending);
}

const FunctionDescription kAscendingKey = {"<lambda>", {}, {"row"}, {}, ascending_key};
const FunctionDescription kDescendingKey = {"<lambda>", {}, {"row"}, {}, descending_key};

struct RankedRow {
    double score;
    long long count;
    Py_ssize_t position;
};

// The row's place in the order, or nothing where it has none among floats.
std::optional<RankedRow> ranked(const Names& names, Arg row, Py_ssize_t position) {
    const Ref score = first_score(names, row);
    const Ref count = attribute(row, names.evaluation_count);
    if (!is_exact_float(score) || std::isnan(as_double(score)) || !is_exact_int(count)) {
        return std::nullopt;
    }
    const auto word = machine_word(count);
    return word ? std::optional(RankedRow{as_double(score), *word, position}) : std::nullopt;
}

}  // namespace

bool are_original_rows(const ModuleState& state, Arg rows) {
    assert(is_exact_list(rows));
    const Names& names = state.names();
    RecordMaker row_maker(state, names.StatsRow);
    RecordMaker window_maker(state, names.WindowStats);
    if (!is_original(state, names.StatsRow) || !is_original(state, names.WindowStats) ||
        !row_maker.is_original() || !window_maker.is_original()) {
        return false;
    }
    for (Py_ssize_t i = 0; i < list_size(rows); ++i) {
        const Ref row = list_item(rows, i);
        if (!row_maker.is_instance(row)) {
            return false;
        }
        const auto windows = optional_attribute(row, names.windows);
        if (!windows || !is_exact_list(*windows) || list_size(*windows) == 0 ||
            !window_maker.is_instance(list_item(*windows, 0))) {
            return false;
        }
        take_turns_after(kWorkOfRecord);
    }
    return row_maker.is_still_original() && window_maker.is_still_original();
}

bool sort_original_rows(const Names& names, const Ref& rows, Direction direction) {
    std::vector<RankedRow> ranking;
    const Ref unsorted = list_of(rows);
    for (Py_ssize_t i = 0; i < list_size(unsorted); ++i) {
        const auto row = ranked(names, item(unsorted, i).get(), i);
        if (!row) {
            return false;
        }
        ranking.push_back(*row);
        take_turns_after(kWorkOfRecord);
    }
    const auto is_before = [&](const RankedRow& left, const RankedRow& right) {
        if (left.score != right.score) {
            return direction == Direction::kAscending ? left.score < right.score
                                                      : left.score > right.score;
        }
        return left.count > right.count;
    };
    std::ranges::stable_sort(ranking, in_turns(is_before));
    for (std::size_t i = 0; i < ranking.size(); ++i) {
        set_list_item(rows, static_cast<Py_ssize_t>(i), list_item(unsorted, ranking[i].position));
    }
    return true;
}

void sort_rows(ModuleState& state, const Ref& rows, Direction direction, std::string_view owner) {
    const Ref key = make_method(
        state, direction == Direction::kAscending ? kAscendingKey : kDescendingKey, owner);
    sort_by(state, rows, key);
}

}  // namespace search_analytics
