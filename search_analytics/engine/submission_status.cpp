// What became of an evaluation that was submitted, by the tracker's database.
#include "engine/submission_status.h"

#include "engine/functions.h"
#include "engine/schema.h"
#include "engine/statistic.h"
#include "facade/statement.h"
#include "facade/traceback.h"

namespace search_analytics {

namespace {

// The row's flag wins over its status text.
Ref flag_of(Arg row) {
    if (item(row, 1).is_none()) {
        return Ref::none();
    }
    return new_bool(truth(item(row, 1)));
}

Ref flag_from_status(const Names& names, Arg status) {
    if (equal(status, names.useful)) {
        return new_bool(true);
    }
    return equal(status, names.not_useful) ? new_bool(false) : Ref::none();
}

}  // namespace

SubmissionStatusReader::SubmissionStatusReader(ModuleState& state, Ref conn)
    : state_(state),
      conn_(std::move(conn)),
      find_table_(state, state.names()._submission_status_table_and_signal_column),
      probe_(state, state.names()._tracker_table_exists) {}

void SubmissionStatusReader::find_table(Arg eval_type) {
    const Names& names = state_.names();
    if (find_table_.is_original()) {
        const StatusTable found = in_place_of(state_, kSubmissionStatusTableAndSignalColumn, [&] {
            return submission_status_table(names, eval_type);
        });
        table_ = Ref::share(found.table);
        pool_column_ = Ref::share(found.pool_column);
        return;
    }
    const Ref pair = call_global(state_, find_table_.name(), eval_type);
    auto [table, pool_column] = unpack_pair(state_, pair);
    table_ = std::move(table);
    pool_column_ = std::move(pool_column);
}

bool SubmissionStatusReader::table_exists() {
    if (!truth(table_)) {
        return false;
    }
    if (probe_.is_original()) {
        return in_place_of(state_, kTrackerTableExists,
                           [&] { return tracker_table_exists(state_.names(), conn_, table_); });
    }
    return truth(call_global(state_, probe_.name(), conn_, table_));
}

// Table and column are the only parts that vary, and come from a fixed list; whatever a caller
// or a record says is bound as a parameter.
Ref SubmissionStatusReader::query_text() {
    for (const Query& known : queries_) {
        if (known.table.get() == table_.get() && known.pool_column.get() == pool_column_.get()) {
            return known.text.copy();
        }
    }
    const Ref select = add(new_str("SELECT status, useful_flag, rejection_reason, "), pool_column_);
    const Ref from = concatenate(select, "\n                       FROM ");
    const Ref from_table = add(from, table_);
    Ref query = concatenate(from_table,
                            "\n                       WHERE eval_id=?"
                            "\n                       ORDER BY status_id DESC"
                            "\n                       LIMIT 1");
    if (is_exact_str(table_) && is_exact_str(pool_column_)) {
        queries_[oldest_query_] = {table_.copy(), pool_column_.copy(), query.copy()};
        oldest_query_ = (oldest_query_ + 1) % queries_.size();
    }
    return query;
}

SubmissionStatus SubmissionStatusReader::read(Asked ev, Arg eval_type, AnyValue& eval_id) {
    const Names& names = state_.names();
    SubmissionStatus found = {Ref::none(), Ref::none(), Ref::none(), Ref::none()};
    find_table(eval_type);
    if (table_exists()) {
        const Ref execute = attribute(conn_, names.execute);
        const Ref query = query_text();
        const Ref parameters = tuple_of(eval_id(ev));
        const Ref cursor = call(execute, query, parameters);
        const Ref row = call_method(cursor, names.fetchone);
        if (!row.is_none()) {
            found.status = item(row, 0);
            found.useful = flag_of(row);
            found.rejection_reason = item(row, 2);
            found.pool = item(row, 3);
        }
    }
    if (found.useful.is_none()) {
        found.useful = flag_from_status(names, found.status);
    }
    return found;
}

}  // namespace search_analytics
