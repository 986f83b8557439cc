// Numbering names in the order in which they are first met.
#pragma once

#include <vector>

#include "tables/name_set.h"
#include "tables/slots.h"

namespace search_analytics {

// A name that is kept, and its hash.
struct OwnedName {
    std::uint64_t hash;
    Ref text;

    bool is(const Name& name) const {
        return hash == name.hash && same_text(text.get(), name.text);
    }
};

// Finds the number of an exact string by its hash and its text, without running code.
class NameTable {
   public:
    std::size_t size() const { return names_.size(); }
    PyObject* text(std::size_t number) const { return names_[number].text.get(); }

    // The number of a name, or Slots::kNone where it has not been met.
    std::size_t find(const Name& name) const {
        return slots_.find(name.hash, [&](std::size_t number) { return names_[number].is(name); });
    }

    // The same; a name that has not been met is numbered now.
    std::size_t number_of(const Name& name) {
        const std::size_t number = find(name);
        return number != Slots::kNone ? number : add(name);
    }

    // Numbers a name that has not been met. REQUIRES: find() knows no number for it.
    std::size_t add(const Name& name) {
        assert(find(name) == Slots::kNone);
        slots_.add(name.hash, [&](std::size_t number) { return names_[number].hash; });
        names_.push_back({name.hash, Ref::share(name.text)});
        return names_.size() - 1;
    }

   private:
    std::vector<OwnedName> names_;
    Slots slots_;
};

}  // namespace search_analytics
