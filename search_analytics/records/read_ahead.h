// Reading ahead in a long list of records.
#pragma once

#include <algorithm>
#include <vector>

#include "records/attribute.h"
#include "records/entry.h"

namespace search_analytics {

// Records lie scattered in memory, and waiting for them is most of what reading them costs. The
// walk asks for those ahead while the present one is worked on, one step of the way from one
// object to the next at a time: the record, the array of its attributes, the values there, what a
// list or a dictionary among them points to, and so on down to the names in an item. Only hints
// are given; what is not there in time, or not where it was, is read as ever.
class ReadAhead {
   public:
    // What is wanted of the records. All of it must outlive the walk.

    // An attribute whose value is one of a few objects that everybody shares: flags, small numbers.
    void add_shared(const Attribute& attribute) { places_.push_back(&attribute); }

    // An attribute, and what its value holds.
    void add(const Attribute& attribute) {
        values_.push_back(&attribute);
        add_shared(attribute);
    }

    // Entries of the dictionary that an attribute is.
    void add_table(const Attribute& attribute, std::vector<const Entry*> entries) {
        tables_.push_back({&attribute, std::move(entries)});
        add_shared(attribute);
    }

    // One entry of every dictionary in the list that an attribute is.
    void add_items(const Attribute& attribute, const Entry& entry) {
        items_.push_back({&attribute, &entry});
        add_shared(attribute);
    }

    // Asks for what will be needed of the records in the list from place `i` on, if they are of
    // this shape.
    void prefetch_from(PyObject* list, Py_ssize_t i, const Shape& shape) const {
        const Py_ssize_t size = list_size(list);
        PyObject* const* records = items_in_place(list) + i;
        if (i + kRecords < size) {
            prefetch_instance(records[kRecords]);
        }
        if (i + kDictionaries < size) {
            prefetch_held(records, shape);
            prefetch_values(records[kValues]);
            if (!tables_.empty()) {
                prefetch_tables(records);
            }
            if (!items_.empty()) {
                prefetch_items(records);
            }
        }
    }

   private:
    // How many records ahead each step is taken.
    enum : Py_ssize_t {
        kItemEntries = 4,
        kItemTables = 7,
        kEntries = 10,
        kTables = 13,
        kValues = 16,
        kArrays = 19,
        kDictionaries = 21,
        kRecords = 23,
    };
    // The longest stretch of a list that is asked for ahead.
    static constexpr std::size_t kPrefetchedItems = 8;

    struct Table {
        const Attribute* attribute;
        std::vector<const Entry*> entries;
    };
    struct Items {
        const Attribute* attribute;
        const Entry* entry;
    };

    template <typename Visit>
    static void with_value(const Attribute& attribute, PyObject* record, Visit&& visit) {
        if (PyObject* value = attribute.guess(record)) {
            visit(value);
        }
    }

    // Calls `visit` with the first items of a list, borrowed. `visit` must not run code.
    template <typename Visit>
    static void for_first_items(PyObject* object, Visit&& visit) {
        const auto items = items_of(object);
        std::for_each_n(items.begin(), std::min(items.size(), kPrefetchedItems), visit);
    }

    // Asks for the arrays in which records hold their attributes, or their dictionaries and the
    // tables of these.
    void prefetch_held(PyObject* const* records, const Shape& shape) const {
        PyObject* record = records[kArrays];
        if (!shape.fits(record)) {
            return;
        }
        if (PyObject** array = shape.array(record)) [[likely]] {
            for (const Attribute* place : places_) {
                place->prefetch_place(array);
            }
            return;
        }
        PyObject* dict = shape.dictionary(record);
        if (dict != nullptr && is_exact_dict(dict)) {
            prefetch_usual_table(keys_of(dict));
        }
        PyObject* next = records[kDictionaries];
        if (shape.fits(next) && shape.array(next) == nullptr && shape.dictionary(next) != nullptr) {
            prefetch(shape.dictionary(next));
        }
    }

    void prefetch_values(PyObject* record) const {
        for (const Attribute* attribute : values_) {
            with_value(*attribute, record, prefetch_value);
        }
        for (const Table& table : tables_) {
            with_value(*table.attribute, record, [](PyObject* dict) { prefetch(dict); });
        }
        for (const Items& items : items_) {
            with_value(*items.attribute, record, [](PyObject* list) { prefetch(list); });
        }
    }

    void prefetch_tables(PyObject* const* records) const {
        for (const Table& table : tables_) {
            with_value(*table.attribute, records[kTables], [&](PyObject* dict) {
                for (const Entry* entry : table.entries) {
                    entry->prefetch_place(dict);
                }
            });
            with_value(*table.attribute, records[kEntries], [&](PyObject* dict) {
                for (const Entry* entry : table.entries) {
                    entry->prefetch_entry(dict);
                }
            });
        }
    }

    void prefetch_items(PyObject* const* records) const {
        for (const Items& items : items_) {
            const auto at = [&](Py_ssize_t step, auto&& visit) {
                with_value(*items.attribute, records[step], visit);
            };
            at(kTables, [](PyObject* value) { prefetch(items_of(value).data()); });
            at(kEntries, [](PyObject* value) {
                for_first_items(value, [](PyObject* item) { prefetch(item); });
            });
            at(kItemTables, [&](PyObject* value) {
                for_first_items(value, [&](PyObject* item) { items.entry->prefetch_place(item); });
            });
            at(kItemEntries, [&](PyObject* value) {
                for_first_items(value, [&](PyObject* item) { items.entry->prefetch_entry(item); });
            });
        }
    }

    std::vector<const Attribute*> places_;
    std::vector<const Attribute*> values_;
    std::vector<Table> tables_;
    std::vector<Items> items_;
};

}  // namespace search_analytics
