// What the tracker's database holds: whether a table exists, and where submissions stand.
#pragma once

#include "names/names.h"

namespace search_analytics {

// _tracker_table_exists(conn, table_name)
bool tracker_table_exists(const Names& names, Arg conn, Arg table_name);

// The table of an evaluation type's submissions and its pool column, or None twice. Borrowed.
struct StatusTable {
    PyObject* table;
    PyObject* pool_column;
};
StatusTable submission_status_table(const Names& names, Arg eval_type);

}  // namespace search_analytics
