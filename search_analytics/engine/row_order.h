// The order of statistics rows.
#pragma once

#include "facade/function.h"

namespace search_analytics {

enum class Direction { kAscending, kDescending };

// Sorts rows in place by the composite score of their first window; among equal scores the group
// with more evaluations comes first in either direction, and then the one first met. Tracebacks
// show the key function as one of `owner`.
void sort_rows(ModuleState& state, const Ref& rows, Direction direction, std::string_view owner);

// Whether all rows, and the first window of each, are the module's own records as it makes them, so
// that reading what they are sorted by runs no code. REQUIRES: an exact list.
bool are_original_rows(const ModuleState& state, Arg rows);

// The same without a call per row, for rows that are the module's own records. Returns false, and
// leaves the rows as they are, where a score is anything but a float with a place in the order.
bool sort_original_rows(const Names& names, const Ref& rows, Direction direction);

}  // namespace search_analytics
