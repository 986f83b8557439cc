// Making result records.
#pragma once

#include <initializer_list>

#include "host/module_state.h"

namespace search_analytics {

// Makes records of one of the module's classes as it stands when an operation starts. Where class
// and constructor are the module's own, the fields are set directly, which is all that the
// constructor would do; otherwise the class is called with the fields as keywords.
class RecordMaker {
   public:
    RecordMaker(const host::ModuleState& state, PyObject* class_name);

    // A field and its value, borrowed.
    struct Field {
        PyObject* name;
        PyObject* value;
    };

    // Whether making a record runs no code that a caller could see.
    bool is_original() const { return is_original_; }

    // REQUIRES: every field of the class is given, in its order.
    host::Ref make(std::initializer_list<Field> fields) const;

   private:
    host::Ref class_;
    host::Ref no_arguments_;
    bool is_original_;
};

}  // namespace search_analytics
