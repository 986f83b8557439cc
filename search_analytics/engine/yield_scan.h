// The scan of a yield analysis: what became of every evaluation, and which were tampered with.
#pragma once

#include "host/containers.h"
#include "host/module_state.h"

namespace search_analytics {

struct Findings {
    Py_ssize_t useful = 0;
    Py_ssize_t not_useful = 0;
    Py_ssize_t unknown = 0;
    // A dictionary for each evaluation, and for each that looks tampered with.
    host::Ref rationale = host::new_list();
    host::Ref tamper_candidates = host::new_list();
};

// Adds every evaluation to the findings; asks the database of the engine's tracker, if it has one.
void scan_evaluations(host::ModuleState& state, PyObject* engine, PyObject* evals,
                      Findings& findings);

}  // namespace search_analytics
