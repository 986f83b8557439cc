// One statistic of an evaluation record, for a chosen PnL column.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kGetStat;

// The column that statistics are read for: the one asked for, or the default.
host::Ref column_or_default(PyObject* pnl_column);

// left + right, for the texts of column keys
host::Ref concatenate(PyObject* left, const char* right);

}  // namespace search_analytics
