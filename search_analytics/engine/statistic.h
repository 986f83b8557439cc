// The statistics of an evaluation record, for a chosen PnL column.
#pragma once

#include <array>

#include "names/names.h"
#include "records/fields.h"

namespace search_analytics {

// The column that statistics are read for: the one asked for, or the default.
Ref column_or_default(Arg pnl_column);

// left + right, for the texts of column keys
Ref concatenate(Arg left, const char* right);

// The rule of every statistic that columns have: the column's entry in the per-column table comes
// first, then the record's own value. `has_table` and `table` are asked whenever the rule mentions
// the table.
template <typename HasTable, typename Table, typename Own>
Ref of_chosen_column(HasTable&& has_table, Table&& table, Arg key, Own&& own) {
    return has_table() && contains(table(), key) ? item(table(), key) : own();
}

// A field: the statistics that columns have, in the order in which they are read.
class ColumnStatistics {
   public:
    enum : std::size_t { kSharpe, kReturns, kDrawdown, kCount };

    ColumnStatistics(const Names& names, Arg pnl_column);

    bool peek(const View& view);
    const std::array<double, kCount>& operator()(Peeked) const { return values_; }
    std::array<Ref, kCount> operator()(Asked ev);

    bool turn_to(PyObject* record);
    void read_ahead(ReadAhead& ahead) const;

   private:
    struct Statistic {
        Statistic(PyObject* name, Ref column_key)
            : own(name), key(std::move(column_key)), entry(key.get()) {}

        Attribute own;
        Ref key;
        Entry entry;
    };

    Attribute per_column_;
    std::array<Statistic, kCount> statistics_;
    std::array<double, kCount> values_{};
};

}  // namespace search_analytics
