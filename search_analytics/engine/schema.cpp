// What the tracker's database holds: whether a table exists, and where submissions stand.
#include "engine/schema.h"

#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

// conn.execute(sql, (table_name,)).fetchone()
Ref fetch_probe(const Names& names, PyObject* conn, const char* sql, PyObject* table_name) {
    const Ref parameters = Ref::steal(PyTuple_Pack(1, table_name));
    const Ref cursor = call_method(conn, names.execute, unicode(sql).get(), parameters.get());
    return call_method(cursor.get(), names.fetchone);
}

// PostgreSQL answers for a missing table with a row that holds NULL, SQLite with no row.
Ref tracker_table_exists(const Call& call) {
    const Names& names = call.names();
    PyObject* conn = call[names.conn];
    PyObject* table_name = call[names.table_name];
    if (conn == Py_None) {
        return boolean(false);
    }
    const Ref dialect = attribute_or_none(conn, names.dialect);
    if (equal(dialect.get(), unicode("postgres").get())) {
        const Ref row = fetch_probe(names, conn, "SELECT to_regclass(?)", table_name);
        return boolean(!row.is_none() && !item(row.get(), Py_ssize_t{0}).is_none());
    }
    const Ref row = fetch_probe(
        names, conn, "SELECT 1 FROM sqlite_master WHERE type='table' AND name=?", table_name);
    return boolean(!row.is_none());
}

Ref submission_status_table_and_signal_column(const Call& call) {
    const Names& names = call.names();
    PyObject* eval_type = call[names.eval_type];
    if (equal(eval_type, names.strategy)) {
        return tuple_of(unicode("strategy_submission_status"),
                        Ref::share(names.strategy_signal_pool));
    }
    if (equal(eval_type, names.signal)) {
        return tuple_of(unicode("signal_submission_status"), Ref::share(names.signal_pool_id));
    }
    return tuple_of(Ref::none(), Ref::none());
}

}  // namespace

const FunctionDescription kTrackerTableExists = {
    "_tracker_table_exists", "Return whether the tracker's database has a table of that name.",
    {"conn, table_name"},    {},
    tracker_table_exists,
};

const FunctionDescription kSubmissionStatusTableAndSignalColumn = {
    "_submission_status_table_and_signal_column",
    "Return the status table and the pool column of an evaluation type, or two Nones.",
    {"eval_type"},
    {},
    submission_status_table_and_signal_column,
};

}  // namespace search_analytics
