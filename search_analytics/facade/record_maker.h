// Making result records.
#pragma once

#include <concepts>
#include <initializer_list>
#include <string_view>

#include "facade/module_state.h"
#include "layout/mould.h"

namespace search_analytics {

// The value of a field: an object, or a number or a text of C++ as the object that it is in Python.
class FieldValue {
   public:
    // NOLINTBEGIN(google-explicit-constructor): fields are listed as they are
    FieldValue(const Ref& object) : object_(object.copy()) {}
    FieldValue(Ref&& object) : object_(std::move(object)) {}
    FieldValue(PyObject* object) : object_(Ref::share(object)) {}
    FieldValue(std::same_as<bool> auto value) : object_(new_bool(value)) {}
    FieldValue(std::same_as<double> auto value) : object_(new_float(value)) {}
    FieldValue(std::same_as<Py_ssize_t> auto value) : object_(new_int(value)) {}
    FieldValue(std::same_as<std::string_view> auto value) : object_(new_str(value)) {}
    // NOLINTEND(google-explicit-constructor)

    const Ref& object() const { return object_; }

   private:
    Ref object_;
};

// Makes records of one of the module's classes as it stands at each call. Where class and
// constructor are the module's own, the fields are set directly, which is all that the constructor
// would do, and from the second record on all at once; otherwise the class is called with the
// fields as keywords.
class RecordMaker {
   public:
    RecordMaker(const ModuleState& state, PyObject* class_name)
        : state_(state), class_name_(class_name) {}

    struct Field {
        PyObject* name;
        FieldValue value;
    };

    // Looks the class up, as a call does before its arguments are worked out: for arguments whose
    // working out may run code.
    void prepare();

    // Whether making a record now runs no code that a caller could see.
    bool is_original() {
        prepare();
        return is_original_;
    }

    // Whether making a record of the class that prepare() found still runs no such code.
    bool is_still_original();

    // Whether an object is an instance of the class that prepare() found, and of no subclass.
    // REQUIRES: it was called.
    bool is_instance(Arg object) const {
        assert(!class_.empty());
        return type_of(object) == class_.get();
    }

    // Whether it did when the last record was made.
    bool was_original() const { return is_original_; }

    // REQUIRES: every field of the class is given, in its order.
    Ref make(std::initializer_list<Field> fields) {
        prepare();
        return make_prepared(fields);
    }

    // The same of the class that prepare() found, which may have been changed since: an argument
    // that was worked out may have done so. REQUIRES: it was called.
    Ref make_prepared(std::initializer_list<Field> fields);

   private:
    bool knows_class() const;
    void learn_class();
    void take_form(const Ref& record, std::initializer_list<Field> fields);

    const ModuleState& state_;
    PyObject* class_name_;
    Ref class_;
    Ref no_arguments_;
    bool is_original_ = false;
    // What the module's namespace and the class were when the answer was found.
    std::uint64_t globals_version_ = 0;
    unsigned int class_version_ = 0;
    // The class's constructor, and the code that it ran then: exchanging that changes no version.
    Ref constructor_;
    Ref constructor_code_;
    // Where the class's instances have the fields, once one was made.
    InstanceMould mould_;
};

}  // namespace search_analytics
