// Argument checks that several operations share.
#include "engine/checks.h"

namespace search_analytics {

void require_sample_size(Arg min_sample_size) {
    if (compare(min_sample_size, new_int(0), Py_LT)) {
        raise(PyExc_ValueError,
              format("min_sample_size must be >= 0, got %U.", text(min_sample_size)));
    }
}

void require_top_n(Arg top_n) {
    if (compare(top_n, new_int(1), Py_LT)) {
        raise(PyExc_ValueError, format("top_n must be >= 1, got %U.", text(top_n)));
    }
}

}  // namespace search_analytics
