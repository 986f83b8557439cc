// The statistics of an evaluation record, for a chosen PnL column.
#include "engine/statistic.h"

#include "engine/functions.h"

namespace search_analytics {

namespace {

// A record without an entry for the column answers with its top-level value, whatever column was
// asked for. The table is read anew at each mention.
Ref get_stat(const Call& call) {
    const Names& names = call.names();
    PyObject* ev = call[names.ev];
    PyObject* stat_name = call[names.stat_name];
    const Ref prefix = concatenate(column_or_default(call[names.pnl_column]), "_");
    const Ref key = add(prefix, stat_name);
    const auto table = [&] { return attribute(ev, names.per_column_stats); };
    return of_chosen_column([&] { return truth(table()); }, table, key,
                            [&] { return attribute(ev, stat_name); });
}

}  // namespace

Ref column_or_default(Arg pnl_column) {
    return pnl_column.is_none() ? new_str("gross_returns") : pnl_column.share();
}

Ref concatenate(Arg left, const char* right) { return add(left, new_str(right)); }

ColumnStatistics::ColumnStatistics(const Names& names, Arg pnl_column)
    : per_column_(names.per_column_stats),
      statistics_{
          Statistic(names.sharpe, concatenate(column_or_default(pnl_column), "_sharpe")),
          Statistic(names.returns, concatenate(column_or_default(pnl_column), "_returns")),
          Statistic(names.drawdown, concatenate(column_or_default(pnl_column), "_drawdown"))} {}

bool ColumnStatistics::peek(const View& view) {
    PyObject* table = per_column_.peek(view);
    if (table == nullptr) {
        return false;
    }
    for (std::size_t i = 0; i < kCount; ++i) {
        Statistic& statistic = statistics_[i];
        PyObject* value =
            table == Py_None ? statistic.own.peek_if_known(view) : statistic.entry.peek(table);
        if (value == nullptr || !is_exact_float(value)) {
            return false;
        }
        values_[i] = as_double(value);
    }
    return true;
}

// The record's own statistics may never have been asked for.
bool ColumnStatistics::turn_to(PyObject* record) {
    for (Statistic& statistic : statistics_) {
        statistic.own.turn_to(record);
    }
    return per_column_.turn_to(record);
}

// The table is read once for all of them.
std::array<Ref, ColumnStatistics::kCount> ColumnStatistics::operator()(Asked ev) {
    const Ref table = per_column_.ask(ev.record);
    const bool has_table = truth(table);
    std::array<Ref, kCount> values;
    for (std::size_t i = 0; i < kCount; ++i) {
        Statistic& statistic = statistics_[i];
        values[i] = of_chosen_column([&] { return has_table; }, [&] { return Arg(table); },
                                     statistic.key, [&] { return statistic.own.ask(ev.record); });
    }
    return values;
}

void ColumnStatistics::read_ahead(ReadAhead& ahead) const {
    std::vector<const Entry*> entries;
    entries.reserve(kCount);
    for (const Statistic& statistic : statistics_) {
        entries.push_back(&statistic.entry);
    }
    ahead.add_table(per_column_, std::move(entries));
}

const FunctionDescription kGetStat = {
    "_get_stat",
    "Return one statistic of a record for a PnL column, else the record's own.",
    {"self, ev, pnl_column, stat_name"},
    {},
    get_stat,
};

}  // namespace search_analytics
