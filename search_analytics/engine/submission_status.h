// What became of an evaluation that was submitted, by the tracker's database.
#pragma once

#include <array>

#include "host/attribute_reader.h"
#include "host/function.h"

namespace search_analytics {

// The latest status row of an evaluation; every field is None where there is no row.
struct SubmissionStatus {
    host::Ref status;
    host::Ref useful;  // True, False, or None where nothing says
    host::Ref rejection_reason;
    host::Ref pool;
};

// Reads submission statuses through the tracker's connection: one probe for the table and one
// query per evaluation, nothing kept from one to the next but the texts of the queries.
class SubmissionStatusReader {
   public:
    // `conn` may be None, where the tracker has no database.
    SubmissionStatusReader(host::ModuleState& state, host::Ref conn);

    // The status of one evaluation, whose type was read before; its id is read if it is needed.
    SubmissionStatus read(PyObject* ev, PyObject* eval_type, host::AttributeReader& eval_id);

   private:
    void find_table(PyObject* eval_type);
    bool table_exists() const;
    host::Ref query_text();

    host::ModuleState& state_;
    host::Ref conn_;
    bool table_is_original_;
    bool probe_is_original_;
    host::Ref table_;
    host::Ref pool_column_;
    // The texts of the last queries, and what they were made of: there are two kinds of evaluation.
    struct Query {
        host::Ref table;
        host::Ref pool_column;
        host::Ref text;
    };
    std::array<Query, 2> queries_;
    std::size_t oldest_query_ = 0;
};

}  // namespace search_analytics
