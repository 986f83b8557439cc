// The order of statistics rows.
#include "engine/row_order.h"

#include <algorithm>
#include <cmath>

#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

// row.windows[0].composite_score
Ref first_score(const Names& names, PyObject* row) {
    const Ref windows = attribute(row, names.windows);
    return attribute(item(windows.get(), Py_ssize_t{0}).get(), names.composite_score);
}

Ref sort_key(const Names& names, PyObject* row, Direction direction) {
    Ref score = first_score(names, row);
    if (direction == Direction::kDescending) {
        score = negative(score.get());
    }
    const Ref count = negative(attribute(row, names.evaluation_count).get());
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
    Py_ssize_t count;
    Py_ssize_t position;
};

// The row's place in the order, or nothing where it has none among floats.
std::optional<RankedRow> ranked(const Names& names, PyObject* row, Py_ssize_t position) {
    const Ref score = first_score(names, row);
    const Ref count = attribute(row, names.evaluation_count);
    if (!PyFloat_CheckExact(score.get()) || std::isnan(PyFloat_AS_DOUBLE(score.get())) ||
        !PyLong_CheckExact(count.get())) {
        return std::nullopt;
    }
    return RankedRow{PyFloat_AS_DOUBLE(score.get()), check_size(PyLong_AsSsize_t(count.get())),
                     position};
}

}  // namespace

bool sort_plain_rows(const Names& names, const Ref& rows, Direction direction) {
    std::vector<RankedRow> ranking;
    const Ref unsorted = list_of(rows.get());
    for (Py_ssize_t i = 0; i < list_size(unsorted); ++i) {
        const auto row = ranked(names, item(unsorted.get(), i).get(), i);
        if (!row) {
            return false;
        }
        ranking.push_back(*row);
    }
    std::ranges::stable_sort(ranking, [&](const RankedRow& left, const RankedRow& right) {
        if (left.score != right.score) {
            return direction == Direction::kAscending ? left.score < right.score
                                                      : left.score > right.score;
        }
        return left.count > right.count;
    });
    for (std::size_t i = 0; i < ranking.size(); ++i) {
        Ref row = item(unsorted.get(), ranking[i].position);
        check(PyList_SetItem(rows.get(), static_cast<Py_ssize_t>(i), row.release()));
    }
    return true;
}

void sort_rows(ModuleState& state, const Ref& rows, Direction direction) {
    const Ref key =
        make_function(state, direction == Direction::kAscending ? kAscendingKey : kDescendingKey);
    sort_by(state, rows, key.get());
}

}  // namespace search_analytics
