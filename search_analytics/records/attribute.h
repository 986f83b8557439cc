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
    PyObject* peek(PyObject* record) {
        return select(record) && place().has_value() ? value_in(place().shape.view(record))
                                                     : nullptr;
    }

    // The same of a record whose shape the attribute was told by select(). REQUIRES: it knows it.
    PyObject* peek(const View& view) const {
        assert(place().shape.fits(view.record) && place().has_value());
        return value_in(view);
    }

    // The same of a record of which it is not known whether the attribute knows its shape.
    PyObject* peek_if_known(const View& view) const {
        return place().shape.fits(view.record) && place().has_value() ? value_in(view) : nullptr;
    }

    // The value as getattr(record, name, None) gives it, borrowed, if that is known; else null.
    PyObject* peek_or_none(PyObject* record) {
        if (!select(record)) {
            return nullptr;
        }
        const View view = place().shape.view(record);
        if (place().where == Where::kNowhere) {
            return is_absent(view) ? Py_None : nullptr;
        }
        return place().has_value() ? value_in(view) : nullptr;
    }

    // Turns to the shape of a record; false where it is none of those that are remembered.
    bool select(PyObject* record) {
        if (place().shape.fits(record)) [[likely]] {
            return true;
        }
        const auto found = std::ranges::find_if(
            places_, [&](const Place& place) { return place.shape.fits(record); });
        if (found == places_.end()) {
            return false;
        }
        current_ = static_cast<std::size_t>(found - places_.begin());
        return true;
    }

    // The same, if the place of the attribute in records of that shape is known.
    bool turn_to(PyObject* record) { return select(record) && place().has_value(); }

    // Finds the place in a record whose attribute is not asked for, if asking would run no code.
    void learn_by_peeking(PyObject* record);

    // What stands in the record's place for the attribute, for hints: the attribute may be another
    // one since the class was changed. Borrowed, or null.
    PyObject* guess(PyObject* record) const {
        return is_of_known_class(record) && place().has_value()
                   ? value_in(place().shape.view(record))
                   : nullptr;
    }

    // Hints that the record's place for the attribute will be read soon.
    void prefetch_place(PyObject* record) const {
        if (is_of_known_class(record) && place().where == Where::kOwn && place().number >= 0 &&
            place().shape.has_array()) {
            if (PyObject** values = instance_values(record)) {
                prefetch(values + place().number);
            }
        }
    }

    // Hints that the record's dictionary will be read soon, where it has one; and its table.
    void prefetch_dictionary(PyObject* record) const {
        if (PyObject* dict = dictionary_pointer(record)) {
            prefetch(dict);
        }
    }
    void prefetch_table(PyObject* record) const {
        PyObject* dict = dictionary_pointer(record);
        if (dict != nullptr && is_exact_dict(dict)) {
            prefetch_usual_table(keys_of(dict));
        }
    }

   private:
    enum class Where { kUnknown, kOwn, kSlot, kItem, kNowhere };

    // Where the instances of a shape keep the attribute.
    struct Place {
        Shape shape;
        Where where = Where::kUnknown;
        // The number in the array or -1, the offset of the slot, the place in the tuple, or how
        // many attributes are numbered without this one.
        Py_ssize_t number = -1;
        // Where the last dictionary had it: a hint.
        mutable std::size_t entry = 0;

        bool has_value() const { return where != Where::kUnknown && where != Where::kNowhere; }
    };

    const Place& place() const { return places_[current_]; }

    // A class keeps places for its attributes where they are, whatever is changed about it.
    bool is_of_known_class(PyObject* record) const {
        return Py_TYPE(record) == place().shape.type();
    }

    PyObject* dictionary_pointer(PyObject* record) const {
        return is_of_known_class(record) ? place().shape.dictionary_pointer(record) : nullptr;
    }

    // REQUIRES: the place has a value, in records of the class of this one.
    PyObject* value_in(const View& view) const {
        const Place& place = places_[current_];
        assert(Py_TYPE(view.record) == place.shape.type());
        switch (place.where) {
            case Where::kOwn:
                if (view.values != nullptr) [[likely]] {
                    return place.number >= 0 ? view.values[place.number] : nullptr;
                }
                return key_.find(view.table, place.entry);
            case Where::kSlot:
                return *reinterpret_cast<PyObject**>(reinterpret_cast<char*>(view.record) +
                                                     place.number);
            default:
                assert(place.where == Where::kItem);
                return place.number < tuple_size(view.record)
                           ? tuple_item(view.record, place.number)
                           : nullptr;
        }
    }

    // An instance whose attributes are in their array has none that its class does not number.
    bool is_absent(const View& view) const {
        if (view.values != nullptr) {
            return numbered_attributes(place().shape.type()) == place().number;
        }
        return view.is_complete && key_.is_missing_in(view.table);
    }

    Ref ask_anew(PyObject* record);
    Ref ask_anew_or_none(PyObject* record);
    bool is_worth_learning(PyObject* record);
    bool learn_place(PyObject* record, PyObject* in_class);
    void learn(PyObject* record, PyObject* value);
    void learn_absence(PyObject* record);

    PyObject* name_;
    TableKey key_;
    std::array<Place, kMostShapes> places_;
    std::size_t current_ = 0;
    // How many more shapes are worth learning: a list that mixes many is read in the ordinary way.
    int lessons_ = 64;
};

}  // namespace search_analytics
