// Large results and the garbage collector.
#pragma once

#include <vector>

#include "python/compat.h"
#include "python/ref.h"
#include "python/turns.h"

namespace search_analytics {

// Keeps the containers of a result out of the collector's sight until the result is complete.
// The collector runs again and again while objects are made, and each time walks those made
// before, which cannot be garbage yet; over thousands of rows that costs more than the rows.
class DeferredTracking {
   public:
    DeferredTracking() = default;
    DeferredTracking(const DeferredTracking&) = delete;
    DeferredTracking& operator=(const DeferredTracking&) = delete;
    ~DeferredTracking() {
        if (!thread_is_ending()) {
            show();
        }
    }

    // Takes fresh containers out of sight.
    template <typename... Containers>
    void defer(const Containers&... containers) {
        (hide(Arg(containers)), ...);
    }

    // Shows all of them to the collector, as if they had just been made. From 3.12 on the collector
    // runs when code does, not when objects are made: if it is due, it runs before they are shown,
    // or its turn would come for all of them when the call returns.
    void finish() {
        if (compat::kCollectsLate && !deferred_.empty()) {
            give_turn();
        }
        show();
    }

   private:
    // Not where a collector may have shown it to another thread since it was made.
    void hide(PyObject* container) {
        if (compat::kHasLock && PyObject_GC_IsTracked(container) != 0) {
            PyObject_GC_UnTrack(container);
            deferred_.push_back(Ref::share(container));
        }
    }

    void show() {
        for (const Ref& container : deferred_) {
            if (PyObject_GC_IsTracked(container.get()) == 0) {
                PyObject_GC_Track(container.get());
            }
        }
        deferred_.clear();
    }

    std::vector<Ref> deferred_;
};

}  // namespace search_analytics
