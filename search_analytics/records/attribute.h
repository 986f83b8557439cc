// Reading the same attribute of one record after another.
#pragma once

#include <algorithm>
#include <array>

#include "records/entry.h"
#include "records/shape.h"

namespace search_analytics {

// How many kinds of records that take turns in one list are remembered.
inline constexpr std::size_t kMostShapes = 4;

// An attribute by its name, with an inline cache: it remembers the shapes last met, and the place
// of the attribute in each. Gives what an ordinary look-up gives: a place is used only for
// instances that hold the attribute themselves, in a slot, as an item of a named tuple, in an array
// or in a dictionary, of a class that looks attributes up in the ordinary way, has nothing of that
// name which goes before the instance's own, and has not been changed since.
class Attribute {
   public:
    // REQUIRES: `name` outlives the attribute.
    explicit Attribute(PyObject* name) : name_(name), key_(name) { assert(name != nullptr); }

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
    PyObject* peek(PyObject* record) { return turn_to(record) ? value_of(record) : nullptr; }

    // The same of a record whose shape the attribute was told by turn_to(). REQUIRES: it knows it.
    PyObject* peek(const View& view) const {
        assert(here_.shape.fits(view.record) && here_.has_value());
        return value_in(view);
    }

    // The same of a record of which it is not known whether the attribute knows its shape.
    PyObject* peek_if_known(const View& view) const {
        if (!here_.shape.fits(view.record)) {
            return nullptr;
        }
        if (here_.where == Where::kNumbered && view.values != nullptr) [[likely]] {
            return view.values[here_.number];
        }
        return here_.has_value() ? value_in(view) : nullptr;
    }

    // The value as getattr(record, name, None) gives it, borrowed, if that is known; else null.
    PyObject* peek_or_none(PyObject* record) {
        if (!select(record)) {
            return nullptr;
        }
        if (here_.where == Where::kNowhere) {
            return is_absent(record) ? Py_None : nullptr;
        }
        return here_.has_value() ? value_of(record) : nullptr;
    }

    // Turns to the shape of a record, if the place of the attribute in records of it is known.
    bool turn_to(PyObject* record) { return select(record) && here_.has_value(); }

    // Finds the place in a record whose attribute is not asked for, if asking would run no code.
    void learn_by_peeking(PyObject* record);

    // The same for hints, of a record of the shape that was met last; else null.
    PyObject* guess(PyObject* record) const {
        return here_.shape.fits(record) && here_.has_value() ? value_of(record) : nullptr;
    }

    // Hints that the record's place for the attribute will be read soon. REQUIRES: the array is
    // that of a record of the shape that the attribute knows.
    void prefetch_place(PyObject** array) const {
        assert(array != nullptr);
        if (here_.where == Where::kNumbered) {
            prefetch(array + here_.number);
        }
    }

   private:
    // kNumbered: in the array of attributes, or else in the dictionary. kNamed: in the dictionary.
    enum class Where { kUnknown, kNowhere, kNumbered, kSlot, kItem, kNamed };

    // Where the instances of a shape keep the attribute.
    struct Place {
        Shape shape;
        Where where = Where::kUnknown;
        // The number in the array, the offset of the slot, the place in the tuple, or how many
        // attributes are numbered without this one.
        Py_ssize_t number = -1;
        // Where the last dictionary had it: a hint.
        mutable std::size_t entry = 0;

        bool has_value() const { return where > Where::kNowhere; }
    };

    // Turns to the shape of a record; false where it is none of those that are remembered.
    bool select(PyObject* record) { return here_.shape.fits(record) || select_other(record); }
    bool select_other(PyObject* record);

    // The value in a record of the class that is known. REQUIRES: the place has one.
    PyObject* value_of(PyObject* record) const {
        assert(Py_TYPE(record) == here_.shape.type() && here_.has_value());
        if (here_.where == Where::kNumbered) [[likely]] {
            if (PyObject** array = instance_values(record)) [[likely]] {
                return array[here_.number];
            }
        }
        return here_.where == Where::kSlot ? slot_of(record) : value_elsewhere(record);
    }

    // The same, given what the record holds. REQUIRES: as before.
    PyObject* value_in(const View& view) const {
        assert(Py_TYPE(view.record) == here_.shape.type() && here_.has_value());
        if (here_.where == Where::kNumbered && view.values != nullptr) [[likely]] {
            return view.values[here_.number];
        }
        return here_.where == Where::kSlot ? slot_of(view.record) : value_elsewhere(view);
    }

    PyObject* slot_of(PyObject* record) const {
        return *reinterpret_cast<PyObject**>(reinterpret_cast<char*>(record) + here_.number);
    }

    // The same in records of less frequent kinds.
    PyObject* value_elsewhere(PyObject* record) const;
    PyObject* value_elsewhere(const View& view) const;

    // An instance whose attributes are in their array has none that its class does not number.
    bool is_absent(PyObject* record) const {
        return here_.shape.array(record) != nullptr
                   ? numbered_attributes(here_.shape.type()) == here_.number
                   : is_absent_from_dictionary(record);
    }
    bool is_absent_from_dictionary(PyObject* record) const;

    Ref ask_anew(PyObject* record);
    Ref ask_anew_or_none(PyObject* record);
    bool is_worth_learning(PyObject* record);
    bool learn_place(PyObject* record, PyObject* in_class);
    void learn(PyObject* record, PyObject* value);
    void learn_absence(PyObject* record);

    PyObject* name_;
    // The place in records of the shape last met, and in those of others.
    Place here_;
    std::array<Place, kMostShapes - 1> elsewhere_;
    TableKey key_;
    // How many more shapes are worth learning: a list that mixes many is read in the ordinary way.
    int lessons_ = 64;
};

}  // namespace search_analytics
