// What the tracker's database holds: whether a table exists, and where submissions stand.
#include "engine/schema.h"

#include "engine/functions.h"

namespace search_analytics {

namespace {

// conn.execute(sql, (table_name,)).fetchone()
Ref fetch_probe(const Names& names, Arg conn, Arg sql, Arg table_name) {
    const Ref parameters = tuple_of(table_name);
    const Ref cursor = call_method(conn, names.execute, sql, parameters);
    return call_method(cursor, names.fetchone);
}

Ref tracker_table_exists_function(const Call& call) {
    const Names& names = call.names();
    return new_bool(tracker_table_exists(names, call[names.conn], call[names.table_name]));
}

Ref submission_status_table_and_signal_column(const Call& call) {
    const auto [table, pool_column] =
        submission_status_table(call.names(), call[call.names().eval_type]);
    return tuple_of(table, pool_column);
}

}  // namespace

// PostgreSQL answers for a missing table with a row that holds NULL, SQLite with no row.
bool tracker_table_exists(const Names& names, Arg conn, Arg table_name) {
    if (conn.is_none()) {
        return false;
    }
    const Ref dialect = attribute_or_none(conn, names.dialect);
    if (equal(dialect, names.postgres)) {
        const Ref row = fetch_probe(names, conn, names.postgres_probe, table_name);
        return !row.is_none() && !item(row, 0).is_none();
    }
    const Ref row = fetch_probe(names, conn, names.sqlite_probe, table_name);
    return !row.is_none();
}

StatusTable submission_status_table(const Names& names, Arg eval_type) {
    if (equal(eval_type, names.strategy)) {
        return {names.strategy_submission_status, names.strategy_signal_pool};
    }
    if (equal(eval_type, names.signal)) {
        return {names.signal_submission_status, names.signal_pool_id};
    }
    return {Py_None, Py_None};
}

const FunctionDescription kTrackerTableExists = {
    "_tracker_table_exists",
    "Return whether the tracker's database has a table of that name.",
    {"conn, table_name"},
    {},
    tracker_table_exists_function,
};

const FunctionDescription kSubmissionStatusTableAndSignalColumn = {
    "_submission_status_table_and_signal_column",
    "Return the status table and the pool column of an evaluation type, or two Nones.",
    {"eval_type"},
    {},
    submission_status_table_and_signal_column,
};

}  // namespace search_analytics
