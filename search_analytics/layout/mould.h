// Fresh instances and dictionaries that are filled at once, all in the same form.
//
// Whoever sets attributes and entries one by one looks each of them up again for every object. The
// first object of a form is made so; those after it are given their values in the same places,
// before anybody has seen them.
#pragma once

#include <initializer_list>
#include <vector>

#include "layout/instance.h"

namespace search_analytics {

// The places of the attributes of a class's instances.
class InstanceMould {
   public:
    // Takes the form of an instance that was given these attributes in this order, and no others.
    // Leaves the mould empty where instances of its class cannot be filled in place.
    void take(PyObject* made, const std::vector<PyObject*>& names);

    bool is_empty() const { return places_.empty(); }
    void clear() { places_.clear(); }

    // Gives a fresh instance its attributes, taking their values over; false where that is not
    // possible. `values` yields one after the other in the order of the names. REQUIRES: an
    // instance of the class of the one that was taken, without attributes, that nobody has seen.
    template <typename Values>
    bool fill(PyObject* fresh, Values&& values) const {
        assert(!is_empty());
        PyObject** array = instance_values(fresh);
        if (array == nullptr) [[unlikely]] {
            return false;
        }
        for (const std::size_t place : places_) {
            assert(array[place] == nullptr);
            array[place] = values().release();
        }
        note_order(array);
        return true;
    }

   private:
    void note_order(PyObject** array) const;

    std::vector<std::size_t> places_;
};

// Dictionaries with the same keys in the same order.
class DictMould {
   public:
    // REQUIRES: the keys outlive the mould.
    explicit DictMould(std::initializer_list<PyObject*> keys);

    // A new dictionary with these values, in the order of the keys, taken over. REQUIRES: as many
    // values as keys.
    Ref make(std::span<Ref> values) const;

   private:
    bool is_form_of(const Table& table) const;

    std::vector<PyObject*> keys_;
    // A dictionary with these keys, of which copies are made. Python code can reach it where the
    // collector does, and is not trusted to leave it alone.
    Ref blank_;
};

}  // namespace search_analytics
