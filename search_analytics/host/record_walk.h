// Walking a long list of records.
#pragma once

#include "host/attribute_reader.h"
#include "host/containers.h"
#include "host/prefetch.h"

namespace search_analytics::host {

// Records lie scattered in memory, and waiting for them is most of what reading them costs. The
// walk asks for those ahead while the present one is worked on, one step of the way from one
// object to the next at a time: the record, the array of its attributes, the values there, what a
// list or a dictionary among them points to, and so on down to the names in an item. Only hints
// are given; what is not there in time, or not where it was, is read as ever.
class ReadAhead {
   public:
    using Readers = std::initializer_list<const AttributeReader*>;

    // The readers whose values are wanted, apart from those whose values are lists of items or
    // tables, which are wanted with all they hold. They must outlive the walk.
    explicit ReadAhead(Readers plain, Readers deep = {})
        : readers_(plain), plain_count_(plain.size()) {
        readers_.insert(readers_.end(), deep);
    }

    // Asks for what will be needed of the records from position `i` of a list on.
    void look(PyObject* list, Py_ssize_t i) const {
        const Py_ssize_t size = PyList_GET_SIZE(list);
        if (i + kRecords < size) {
            prefetch_object(PyList_GET_ITEM(list, i + kRecords));
        }
        if (i + kArrays < size) {
            for (const AttributeReader* reader : readers_) {
                reader->prefetch_place(PyList_GET_ITEM(list, i + kArrays));
            }
            for_each_value(list, i + kValues, 0, prefetch_object);
        }
        if (i + kTables < size && plain_count_ < readers_.size()) {
            for_each_value(list, i + kTables, plain_count_, prefetch_table);
            for_each_value(list, i + kEntries, plain_count_, prefetch_entries);
            for_each_value(list, i + kItemTables, plain_count_,
                           [](PyObject* value) { for_each_item(value, prefetch_table); });
            for_each_value(list, i + kItemEntries, plain_count_,
                           [](PyObject* value) { for_each_item(value, prefetch_entries); });
        }
    }

   private:
    // How many records ahead each step is taken.
    enum : Py_ssize_t {
        kItemEntries = 1,
        kItemTables = 3,
        kEntries = 5,
        kTables = 7,
        kValues = 9,
        kArrays = 11,
        kRecords = 14,
    };

    template <typename Visit>
    void for_each_value(PyObject* list, Py_ssize_t i, std::size_t first, Visit&& visit) const {
        PyObject* record = PyList_GET_ITEM(list, i);
        for (std::size_t reader = first; reader < readers_.size(); ++reader) {
            if (PyObject* value = readers_[reader]->known_place(record)) {
                visit(value);
            }
        }
    }

    std::vector<const AttributeReader*> readers_;
    std::size_t plain_count_;
};

// for record in records: visit(record) -- reading ahead where `records` is a list.
template <typename Visit>
void for_each_record(PyObject* records, const ReadAhead& ahead, Visit&& visit) {
    if (!PyList_CheckExact(records)) {
        for_each(records, visit);
        return;
    }
    Py_ssize_t i = 0;
    for_each(records, [&](PyObject* record) {
        ahead.look(records, i++);
        visit(record);
    });
}

}  // namespace search_analytics::host
