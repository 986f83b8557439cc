// Numbering plain strings in the order in which they are first met.
#include "engine/text_index.h"

#include "engine/slots.h"

namespace search_analytics {

using namespace host;

void TextIndex::add(PyObject* text, Py_hash_t hash) {
    reserve_slot(slots_, texts_.size(), [&](std::size_t number) { return texts_[number].hash; });
    const std::size_t mask = slots_.size() - 1;
    std::size_t slot = static_cast<std::uint64_t>(hash) & mask;
    while (slots_[slot] != 0) {
        slot = (slot + 1) & mask;
    }
    texts_.push_back({hash, Ref::share(text)});
    slots_[slot] = static_cast<std::uint32_t>(texts_.size());
}

}  // namespace search_analytics
