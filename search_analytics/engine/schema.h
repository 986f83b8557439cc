// What the tracker's database holds: whether a table exists, and where submissions stand.
#pragma once

#include "host/function.h"

namespace search_analytics {

extern const host::FunctionDescription kTrackerTableExists;
extern const host::FunctionDescription kSubmissionStatusTableAndSignalColumn;

// _tracker_table_exists(conn, table_name)
bool tracker_table_exists(const host::Names& names, PyObject* conn, PyObject* table_name);

// The table of an evaluation type's submissions and its pool column, or None twice. Borrowed.
struct StatusTable {
    PyObject* table;
    PyObject* pool_column;
};
StatusTable submission_status_table(const host::Names& names, PyObject* eval_type);

}  // namespace search_analytics
