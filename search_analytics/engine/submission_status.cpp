// What became of an evaluation that was submitted, by the tracker's database.
#include "engine/submission_status.h"

#include "engine/schema.h"
#include "engine/statistic.h"
#include "host/containers.h"
#include "host/statement.h"

namespace search_analytics {

using namespace host;

namespace {

// The row's flag wins over its status text.
Ref flag_of(PyObject* row) {
    if (item(row, Py_ssize_t{1}).is_none()) {
        return Ref::none();
    }
    return boolean(truth(item(row, Py_ssize_t{1}).get()));
}

Ref flag_from_status(const Names& names, PyObject* status) {
    if (equal(status, names.useful)) {
        return boolean(true);
    }
    return equal(status, names.not_useful) ? boolean(false) : Ref::none();
}

}  // namespace

SubmissionStatusReader::SubmissionStatusReader(ModuleState& state, Ref conn)
    : state_(state),
      conn_(std::move(conn)),
      table_is_original_(
          is_original(state, state.names._submission_status_table_and_signal_column)),
      probe_is_original_(is_original(state, state.names._tracker_table_exists)) {}

void SubmissionStatusReader::find_table(PyObject* eval_type) {
    const Names& names = state_.names;
    if (table_is_original_) {
        const StatusTable found = submission_status_table(names, eval_type);
        table_ = Ref::share(found.table);
        pool_column_ = Ref::share(found.pool_column);
        return;
    }
    const Ref pair =
        call_global(state_, names._submission_status_table_and_signal_column, eval_type);
    auto [table, pool_column] = unpack_pair(state_, pair.get());
    table_ = std::move(table);
    pool_column_ = std::move(pool_column);
}

bool SubmissionStatusReader::table_exists() const {
    if (!truth(table_.get())) {
        return false;
    }
    if (probe_is_original_) {
        return tracker_table_exists(state_.names, conn_.get(), table_.get());
    }
    return truth(
        call_global(state_, state_.names._tracker_table_exists, conn_.get(), table_.get()).get());
}

// Table and column are the only parts that vary, and come from a fixed list; whatever a caller
// or a record says is bound as a parameter.
Ref SubmissionStatusReader::query_text() {
    for (const Query& known : queries_) {
        if (known.table.get() == table_.get() && known.pool_column.get() == pool_column_.get()) {
            return known.text.copy();
        }
    }
    const Ref select = Ref::steal(PyNumber_Add(
        unicode("SELECT status, useful_flag, rejection_reason, ").get(), pool_column_.get()));
    const Ref from = concatenate(select.get(), "\n                       FROM ");
    const Ref from_table = Ref::steal(PyNumber_Add(from.get(), table_.get()));
    Ref query = concatenate(from_table.get(),
                            "\n                       WHERE eval_id=?"
                            "\n                       ORDER BY status_id DESC"
                            "\n                       LIMIT 1");
    queries_[oldest_query_] = {table_.copy(), pool_column_.copy(), query.copy()};
    oldest_query_ = (oldest_query_ + 1) % queries_.size();
    return query;
}

SubmissionStatus SubmissionStatusReader::read(PyObject* ev, PyObject* eval_type,
                                              AttributeReader& eval_id) {
    const Names& names = state_.names;
    SubmissionStatus found = {Ref::none(), Ref::none(), Ref::none(), Ref::none()};
    find_table(eval_type);
    if (table_exists()) {
        const Ref execute = attribute(conn_.get(), names.execute);
        const Ref query = query_text();
        const Ref parameters = tuple_of(eval_id.read(ev));
        const Ref cursor = call(execute.get(), query.get(), parameters.get());
        const Ref row = call_method(cursor.get(), names.fetchone);
        if (!row.is_none()) {
            found.status = item(row.get(), Py_ssize_t{0});
            found.useful = flag_of(row.get());
            found.rejection_reason = item(row.get(), Py_ssize_t{2});
            found.pool = item(row.get(), Py_ssize_t{3});
        }
    }
    if (found.useful.is_none()) {
        found.useful = flag_from_status(names, found.status.get());
    }
    return found;
}

}  // namespace search_analytics
