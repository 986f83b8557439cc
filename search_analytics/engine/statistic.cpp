// One statistic of an evaluation record, for a chosen PnL column.
#include "engine/statistic.h"

#include "host/containers.h"

namespace search_analytics {

using namespace host;

namespace {

// The per-column table comes first, even for the default column; a record without an entry there
// answers with its top-level value, whatever column was asked for.
Ref get_stat(const Call& call) {
    const Names& names = call.names();
    PyObject* ev = call[names.ev];
    PyObject* stat_name = call[names.stat_name];
    const Ref prefix = concatenate(column_or_default(call[names.pnl_column]).get(), "_");
    const Ref key = Ref::steal(PyNumber_Add(prefix.get(), stat_name));
    const auto per_column = [&] { return attribute(ev, names.per_column_stats); };
    if (truth(per_column().get()) && contains(per_column().get(), key.get())) {
        return item(per_column().get(), key.get());
    }
    return attribute(ev, stat_name);
}

}  // namespace

Ref column_or_default(PyObject* pnl_column) {
    return pnl_column == Py_None ? unicode("gross_returns") : Ref::share(pnl_column);
}

Ref concatenate(PyObject* left, const char* right) {
    return Ref::steal(PyNumber_Add(left, unicode(right).get()));
}

const FunctionDescription kGetStat = {
    "_get_stat",
    "Return one statistic of a record for a PnL column, else the record's own.",
    {"self, ev, pnl_column, stat_name"},
    {},
    get_stat,
};

}  // namespace search_analytics
