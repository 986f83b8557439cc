// The order of statistics rows.
#include "engine/row_order.h"

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

}  // namespace

void sort_rows(ModuleState& state, const Ref& rows, Direction direction) {
    const Ref key =
        make_function(state, direction == Direction::kAscending ? kAscendingKey : kDescendingKey);
    sort_by(state, rows, key.get());
}

}  // namespace search_analytics
