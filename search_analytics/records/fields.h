// The fields that questions read: each an attribute and what may be done with it without running
// code.
#pragma once

#include "records/evaluations.h"

namespace search_analytics {

// What every field of one attribute has in common.
class AttributeField {
   public:
    explicit AttributeField(PyObject* name) : attribute_(name) {}

    // Turns to the shape of a record, if the attribute's place there is known.
    bool turn_to(PyObject* record) { return attribute_.turn_to(record); }

   protected:
    Attribute attribute_;
};

// The truth of an attribute.
class Flag : public AttributeField {
   public:
    using AttributeField::AttributeField;

    bool peek(const View& view) { return keep(attribute_.peek(view)); }

    bool operator()(Peeked) const { return value_; }
    bool operator()(Asked ev) { return truth(attribute_.ask(ev.record)); }

    void read_ahead(ReadAhead& ahead) const { ahead.add_shared(attribute_); }
    void learn_by_peeking(PyObject* record) { attribute_.learn_by_peeking(record); }

   private:
    bool keep(PyObject* value) {
        value_ = value == Py_True;
        return value_ || value == Py_False;
    }

    bool value_ = false;
};

// A number: a double where it is an exact float, else the object that it is.
class Number : public AttributeField {
   public:
    using AttributeField::AttributeField;

    bool peek(const View& view) { return keep(attribute_.peek(view)); }

    double operator()(Peeked) const { return value_; }
    Ref operator()(Asked ev) { return attribute_.ask(ev.record); }

    void read_ahead(ReadAhead& ahead) const { ahead.add(attribute_); }
    void learn_by_peeking(PyObject* record) { attribute_.learn_by_peeking(record); }

   private:
    bool keep(PyObject* value) {
        if (value == nullptr || !is_exact_float(value)) {
            return false;
        }
        value_ = as_double(value);
        return true;
    }

    double value_ = 0.0;
};

// A key of a mapping.
class Key : public AttributeField {
   public:
    using AttributeField::AttributeField;

    bool peek(const View& view) {
        value_ = attribute_.peek(view);
        return value_ != nullptr && is_exact_key(value_);
    }

    PyObject* operator()(Peeked) const { return value_; }
    Ref operator()(Asked ev) { return attribute_.ask(ev.record); }

    void read_ahead(ReadAhead& ahead) const { ahead.add_shared(attribute_); }

   private:
    PyObject* value_ = nullptr;
};

// What is compared with a value that is wanted of it, unless that is None.
class Comparand : public AttributeField {
   public:
    // REQUIRES: `wanted` outlives the field.
    Comparand(PyObject* name, Arg wanted)
        : AttributeField(name),
          wanted_(wanted),
          wanted_is_str_(is_exact_str(wanted) && is_short_name(wanted)) {}

    bool peek(const View& view) {
        value_ = attribute_.peek(view);
        return value_ != nullptr &&
               (wanted_ == Py_None || (wanted_is_str_ && is_exact_str(value_)));
    }

    PyObject* operator()(Peeked) const { return value_; }
    Ref operator()(Asked ev) { return attribute_.ask(ev.record); }

    // value == wanted
    bool matches(Arg value) const { return equal(value, wanted_); }

    void read_ahead(ReadAhead& ahead) const { ahead.add_shared(attribute_); }

   private:
    PyObject* wanted_;
    bool wanted_is_str_;
    PyObject* value_ = nullptr;
};

// A value that is handed on as it is: always asked for.
class AnyValue : public AttributeField {
   public:
    using AttributeField::AttributeField;

    Ref operator()(Asked ev) { return attribute_.ask(ev.record); }
    // The same, with None where there is no such attribute.
    Ref or_none(Asked ev) { return attribute_.ask_or_none(ev.record); }

    void read_ahead(ReadAhead& ahead) const { ahead.add(attribute_); }
};

}  // namespace search_analytics
