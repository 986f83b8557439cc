// Walking a long list of records.
#pragma once

#include "host/attribute_reader.h"
#include "host/containers.h"
#include "host/entry_reader.h"

namespace search_analytics::host {

// Records lie scattered in memory, and waiting for them is most of what reading them costs. The
// walk asks for those ahead while the present one is worked on, one step of the way from one
// object to the next at a time: the record, the array of its attributes, the values there, what a
// list or a dictionary among them points to, and so on down to the names in an item. Only hints
// are given; what is not there in time, or not where it was, is read as ever.
class ReadAhead {
   public:
    // What is wanted of the records. All readers must outlive the walk.

    // An attribute whose value is one of a few objects that everybody shares: flags, small numbers.
    ReadAhead& flag(const AttributeReader& attribute) {
        places_.push_back(&attribute);
        return *this;
    }

    // An attribute, and what its value holds.
    ReadAhead& value(const AttributeReader& attribute) {
        values_.push_back(&attribute);
        return flag(attribute);
    }

    // Entries of the dictionary that an attribute is.
    ReadAhead& table(const AttributeReader& attribute,
                     std::initializer_list<const EntryReader*> entries) {
        tables_.push_back({&attribute, entries});
        return flag(attribute);
    }

    // One entry of every dictionary in the list that an attribute is.
    ReadAhead& items(const AttributeReader& attribute, const EntryReader& entry) {
        items_.push_back({&attribute, &entry});
        return flag(attribute);
    }

    // Asks for what will be needed of the records in the list from place `i` on.
    void look(PyObject* list, Py_ssize_t i) const {
        const Py_ssize_t size = PyList_GET_SIZE(list);
        if (i + kRecords < size) {
            prefetch_instance(PyList_GET_ITEM(list, i + kRecords));
        }
        if (i + kArrays < size) {
            PyObject* record = PyList_GET_ITEM(list, i + kArrays);
            for (const AttributeReader* place : places_) {
                place->prefetch_place(record);
            }
            look_at_values(PyList_GET_ITEM(list, i + kValues));
            if (!tables_.empty()) {
                look_at_tables(list, i);
            }
            if (!items_.empty()) {
                look_at_items(list, i);
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
        kRecords = 23,
    };

    struct Table {
        const AttributeReader* attribute;
        std::vector<const EntryReader*> entries;
    };
    struct Items {
        const AttributeReader* attribute;
        const EntryReader* entry;
    };

    template <typename Visit>
    static void with_value(const AttributeReader& attribute, PyObject* record, Visit&& visit) {
        if (PyObject* value = attribute.look(record)) {
            visit(value);
        }
    }

    void look_at_values(PyObject* record) const {
        for (const AttributeReader* attribute : values_) {
            with_value(*attribute, record, prefetch_value);
        }
        for (const Table& table : tables_) {
            with_value(*table.attribute, record, [](PyObject* dict) { prefetch(dict); });
        }
        for (const Items& items : items_) {
            with_value(*items.attribute, record, [](PyObject* list) { prefetch(list); });
        }
    }

    void look_at_tables(PyObject* list, Py_ssize_t i) const {
        for (const Table& table : tables_) {
            with_value(*table.attribute, PyList_GET_ITEM(list, i + kTables), [&](PyObject* dict) {
                for (const EntryReader* entry : table.entries) {
                    entry->prefetch_place(dict);
                }
            });
            with_value(*table.attribute, PyList_GET_ITEM(list, i + kEntries), [&](PyObject* dict) {
                for (const EntryReader* entry : table.entries) {
                    entry->prefetch_entry(dict);
                }
            });
        }
    }

    void look_at_items(PyObject* list, Py_ssize_t i) const {
        for (const Items& items : items_) {
            const auto at = [&](Py_ssize_t step, auto&& visit) {
                with_value(*items.attribute, PyList_GET_ITEM(list, i + step), visit);
            };
            at(kTables, [](PyObject* value) {
                if (PyList_CheckExact(value)) {
                    prefetch(reinterpret_cast<PyListObject*>(value)->ob_item);
                }
            });
            at(kEntries, [](PyObject* value) {
                for_each_item_ahead(value, [](PyObject* item) { prefetch(item); });
            });
            at(kItemTables, [&](PyObject* value) {
                for_each_item_ahead(value,
                                    [&](PyObject* item) { items.entry->prefetch_place(item); });
            });
            at(kItemEntries, [&](PyObject* value) {
                for_each_item_ahead(value,
                                    [&](PyObject* item) { items.entry->prefetch_entry(item); });
            });
        }
    }

    std::vector<const AttributeReader*> places_;
    std::vector<const AttributeReader*> values_;
    std::vector<Table> tables_;
    std::vector<Items> items_;
};

// for record in records: visit(record) -- reading ahead where `records` is a list. Each record is
// shown to `look` first, borrowed: where looking is enough, it does what is to be done, and returns
// true. It must not run code before it is done with the record.
template <typename Look, typename Visit>
void for_each_record(PyObject* records, const ReadAhead& ahead, Look&& look, Visit&& visit) {
    if (!PyList_CheckExact(records)) {
        for_each(records, [&](PyObject* record) {
            if (!look(record)) {
                visit(record);
            }
        });
        return;
    }
    for_each_place_until(records, [&](Py_ssize_t i, PyObject* record) {
        ahead.look(records, i);
        if (!look(record)) {
            const Ref current = Ref::share(record);
            visit(record);
        }
        return true;
    });
}

// The same for what looking is never enough for.
template <typename Visit>
void for_each_record(PyObject* records, const ReadAhead& ahead, Visit&& visit) {
    for_each_record(records, ahead, [](PyObject*) { return false; }, visit);
}

}  // namespace search_analytics::host
