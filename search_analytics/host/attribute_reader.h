// Reading the same attribute of one record after another.
#pragma once

#include "host/instance_layout.h"
#include "host/object.h"
#include "host/prefetch.h"

namespace search_analytics::host {

// Reads one attribute, and remembers where the last record's class keeps it. Gives what an
// ordinary look-up gives: the short way is taken only for instances that hold the attribute
// themselves, of a class that looks attributes up in the ordinary way, has nothing of that name
// which goes before the instance's own, and has not been changed since.
class AttributeReader {
   public:
    // REQUIRES: `name` is interned and outlives the reader.
    explicit AttributeReader(PyObject* name) noexcept : name_(name) {}

    // record.name
    Ref read(PyObject* record) {
        PyObject* value = known_place(record);
        return value != nullptr ? Ref::share(value) : read_anew(record);
    }

    // getattr(record, name, None)
    Ref read_or_none(PyObject* record) {
        PyObject* value = known_place(record);
        return value != nullptr ? Ref::share(value) : read_anew_or_none(record);
    }

    // The value of a record whose class is known, borrowed; or null. Runs no code.
    PyObject* known_place(PyObject* record) const {
        const PyTypeObject* type = Py_TYPE(record);
        if (type != type_ || type->tp_version_tag != version_ || number_ < 0) {
            return nullptr;
        }
        PyObject** values = instance_values(record);
        return values != nullptr ? values[number_] : nullptr;
    }

    // Hints that the record's place for the attribute will be read soon.
    void prefetch_place(PyObject* record) const {
        if (Py_TYPE(record) != type_ || number_ < 0) {
            return;
        }
        if (PyObject** values = instance_values(record)) {
            prefetch(values + number_);
        }
    }

   private:
    Ref read_anew(PyObject* record);
    Ref read_anew_or_none(PyObject* record);
    void learn(PyObject* record, PyObject* value);

    PyObject* name_;
    // The class last met; only compared, never used without a record of that very class.
    const PyTypeObject* type_ = nullptr;
    unsigned int version_ = 0;
    Py_ssize_t number_ = -1;
    // How many more classes are worth learning: a list that mixes them is read in the ordinary way.
    int lessons_ = 64;
};

}  // namespace search_analytics::host
