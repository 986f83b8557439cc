// Reading the same attribute of one record after another.
#pragma once

#include "records/layout.h"
#include "records/prefetch.h"

namespace search_analytics {

// A class as it was when its instances were met: an instance of the same class in the same version
// keeps its attributes in the same places.
class Shape {
   public:
    Shape() = default;
    explicit Shape(PyObject* record)
        : type_(Py_TYPE(record)),
          version_(compat::load(type_->tp_version_tag)),
          has_array_(numbered_names(type_) != nullptr) {}

    bool fits(PyObject* record) const {
        return Py_TYPE(record) == type_ && compat::load(type_->tp_version_tag) == version_;
    }
    bool has_array() const { return has_array_; }

    bool operator==(const Shape& other) const {
        return type_ == other.type_ && version_ == other.version_;
    }

    // Whether the class looks attributes up in the ordinary way, and tells when it changes.
    bool is_ordinary() const {
        return type_->tp_getattro == PyObject_GenericGetAttr && compat::class_version(type_) != 0;
    }

    // The class. Only compared, never used without a record of that very class.
    PyTypeObject* type() const { return type_; }

   private:
    PyTypeObject* type_ = nullptr;
    unsigned int version_ = 0;
    bool has_array_ = false;
};

// A record whose shape is known, and the array of its attributes, where its class keeps one.
struct View {
    PyObject* record;
    PyObject** values;
};

// An attribute by its name, with an inline cache: it remembers the shape last met, and the place of
// the attribute there. Gives what an ordinary look-up gives: the place is used only for instances
// that hold the attribute themselves, in a slot or in the array of their attributes, of a class
// that looks attributes up in the ordinary way, has nothing of that name which goes before the
// instance's own, and has not been changed since.
class Attribute {
   public:
    // REQUIRES: `name` outlives the attribute.
    explicit Attribute(PyObject* name) noexcept : name_(name) { assert(name != nullptr); }

    // record.name
    Ref ask(PyObject* record) {
        PyObject* value = peek(record);
        return value != nullptr ? Ref::share(value) : ask_anew(record);
    }

    // getattr(record, name, None)
    Ref ask_or_none(PyObject* record) {
        PyObject* value = peek_or_none(record);
        return value != nullptr ? Ref::share(value) : ask_anew_or_none(record);
    }

    // The value, borrowed, where its place is known; else null. Runs no code.
    PyObject* peek(PyObject* record) const {
        PyObject** place = shape_.fits(record) ? place_in(record) : nullptr;
        return place != nullptr ? *place : nullptr;
    }

    // The same for a record that has the attribute's shape. REQUIRES: knows(its shape).
    PyObject* peek(const View& view) const {
        assert(shape_.fits(view.record) && has_place());
        return where_ == Where::kArray ? view.values[number_] : *slot_in(view.record);
    }

    // The same for a record of which it is not known whether the attribute knows its shape.
    PyObject* peek_if_known(const View& view) const {
        if (!shape_.fits(view.record)) {
            return nullptr;
        }
        if (where_ == Where::kArray) [[likely]] {
            return view.values[number_];
        }
        return where_ == Where::kSlot ? *slot_in(view.record) : nullptr;
    }

    // The same, with None where it is known that there is no such attribute.
    PyObject* peek_or_none(PyObject* record) const {
        if (where_ == Where::kNowhere) {
            return is_absent(record) ? Py_None : nullptr;
        }
        return peek(record);
    }

    // Whether the place of the attribute in records of this shape is known.
    bool knows(const Shape& shape) const { return has_place() && shape_ == shape; }

    // Finds the place in a record whose attribute is not asked for, if asking would run no code.
    void learn_by_peeking(PyObject* record);

    // What stands in the record's place for the attribute, for hints: the attribute may be another
    // one since the class was changed. Borrowed, or null.
    PyObject* guess(PyObject* record) const {
        PyObject** place = guess_place(record);
        return place != nullptr ? *place : nullptr;
    }

    // Hints that the record's place for the attribute will be read soon.
    void prefetch_place(PyObject* record) const {
        if (PyObject** place = guess_place(record)) {
            prefetch(place);
        }
    }

   private:
    enum class Where { kUnknown, kArray, kSlot, kNowhere };

    bool has_place() const { return where_ == Where::kArray || where_ == Where::kSlot; }

    PyObject** slot_in(PyObject* record) const {
        return reinterpret_cast<PyObject**>(reinterpret_cast<char*>(record) + number_);
    }

    // A class keeps places for its attributes where they are, whatever is changed about it.
    PyObject** guess_place(PyObject* record) const {
        return Py_TYPE(record) == shape_.type() ? place_in(record) : nullptr;
    }

    // REQUIRES: the record is of the class that is known.
    PyObject** place_in(PyObject* record) const {
        assert(Py_TYPE(record) == shape_.type());
        if (where_ == Where::kArray) [[likely]] {
            PyObject** values = instance_values(record);
            return values != nullptr ? values + number_ : nullptr;
        }
        return where_ == Where::kSlot ? slot_in(record) : nullptr;
    }

    // An instance whose attributes are in their array has none that its class does not number.
    bool is_absent(PyObject* record) const {
        return shape_.fits(record) && instance_values(record) != nullptr &&
               numbered_attributes(Py_TYPE(record)) == number_;
    }

    Ref ask_anew(PyObject* record);
    Ref ask_anew_or_none(PyObject* record);
    bool is_worth_learning(PyObject* record);
    void learn(PyObject* record, PyObject* value);
    void learn_absence(PyObject* record);

    PyObject* name_;
    Shape shape_;
    Where where_ = Where::kUnknown;
    // The number in the array, or the offset of the slot, or how many attributes there are without
    // this one.
    Py_ssize_t number_ = 0;
    // How many more shapes are worth learning: a list that mixes them is read in the ordinary way.
    int lessons_ = 64;
};

}  // namespace search_analytics
