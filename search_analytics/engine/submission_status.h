// What became of an evaluation that was submitted, by the tracker's database.
#pragma once

#include <array>

#include "facade/module_state.h"
#include "records/fields.h"

namespace search_analytics {

// The latest status row of an evaluation; every field is None where there is no row.
struct SubmissionStatus {
    Ref status;
    Ref useful;  // True, False, or None where nothing says
    Ref rejection_reason;
    Ref pool;
};

// Reads submission statuses through the tracker's connection: one probe for the table and one
// query per evaluation, nothing kept from one to the next but the texts of the queries.
class SubmissionStatusReader {
   public:
    // `conn` may be None, where the tracker has no database.
    SubmissionStatusReader(ModuleState& state, Ref conn);

    // The status of one evaluation, whose type was read before; its id is read if it is needed.
    SubmissionStatus read(Asked ev, Arg eval_type, AnyValue& eval_id);

   private:
    void find_table(Arg eval_type);
    bool table_exists();
    Ref query_text();

    ModuleState& state_;
    Ref conn_;
    WatchedGlobal find_table_;
    WatchedGlobal probe_;
    Ref table_;
    Ref pool_column_;
    // The texts of the last queries, and what they were made of: there are two kinds of evaluation.
    struct Query {
        Ref table;
        Ref pool_column;
        Ref text;
    };
    std::array<Query, 2> queries_;
    std::size_t oldest_query_ = 0;
};

}  // namespace search_analytics
