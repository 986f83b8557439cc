// Reading the same attribute of one record after another.
#pragma once

#include "host/instance_layout.h"
#include "host/object.h"
#include "host/prefetch.h"

namespace search_analytics::host {

// Reads one attribute, and remembers where the last record's class keeps it. Gives what an
// ordinary look-up gives: the short way is taken only for instances that hold the attribute
// themselves, in a slot or in the array of their attributes, of a class that looks attributes up in
// the ordinary way, has nothing of that name which goes before the instance's own, and has not been
// changed since.
class AttributeReader {
   public:
    // REQUIRES: `name` is interned and outlives the reader.
    explicit AttributeReader(PyObject* name) noexcept : name_(name) {}

    // record.name
    Ref read(PyObject* record) {
        PyObject* value = look(record);
        return value != nullptr ? Ref::share(value) : read_anew(record);
    }

    // getattr(record, name, None)
    Ref read_or_none(PyObject* record) {
        PyObject* value = look_or_none(record);
        return value != nullptr ? Ref::share(value) : read_anew_or_none(record);
    }

    // The value, borrowed, where looking is enough to find it; else null. Runs no code.
    PyObject* look(PyObject* record) const {
        if (!knows_class_of(record)) {
            return nullptr;
        }
        PyObject** place = place_in(record);
        return place != nullptr ? *place : nullptr;
    }

    // The same, with None where looking is enough to tell that there is no such attribute.
    PyObject* look_or_none(PyObject* record) const {
        if (where_ == Where::kNowhere) {
            return is_absent(record) ? Py_None : nullptr;
        }
        return look(record);
    }

    // Learns the class of a record whose attribute is not read, as long as a look-up would run no
    // code, for a walk that only looks.
    void learn_by_looking(PyObject* record);

    // Hints that the record's place for the attribute will be read soon.
    void prefetch_place(PyObject* record) const {
        PyObject** place = Py_TYPE(record) == type_ ? place_in(record) : nullptr;
        if (place != nullptr) {
            prefetch(place);
        }
    }

   private:
    enum class Where { kUnknown, kArray, kSlot, kNowhere };

    bool knows_class_of(PyObject* record) const {
        return Py_TYPE(record) == type_ && type_->tp_version_tag == version_;
    }

    // REQUIRES: the record is of the class that is known.
    PyObject** place_in(PyObject* record) const {
        if (where_ == Where::kArray) [[likely]] {
            PyObject** values = instance_values(record);
            return values != nullptr ? values + number_ : nullptr;
        }
        if (where_ == Where::kSlot) {
            return reinterpret_cast<PyObject**>(reinterpret_cast<char*>(record) + number_);
        }
        return nullptr;
    }

    // An instance whose attributes are in their array has none that its class does not number.
    bool is_absent(PyObject* record) const {
        return knows_class_of(record) && instance_values(record) != nullptr &&
               numbered_attributes(Py_TYPE(record)) == number_;
    }

    Ref read_anew(PyObject* record);
    Ref read_anew_or_none(PyObject* record);
    bool is_new_class_of(PyObject* record);
    void learn(PyObject* record, PyObject* value);
    void learn_absence(PyObject* record);

    PyObject* name_;
    // The class last met; only compared, never used without a record of that very class.
    const PyTypeObject* type_ = nullptr;
    unsigned int version_ = 0;
    Where where_ = Where::kUnknown;
    // The number in the array, or the offset of the slot, or how many attributes there are without
    // this one.
    Py_ssize_t number_ = 0;
    // How many more classes are worth learning: a list that mixes them is read in the ordinary way.
    int lessons_ = 64;
};

}  // namespace search_analytics::host
