// Argument checks that several operations share.
#include "engine/checks.h"

namespace search_analytics {

using namespace host;

void require_sample_size(PyObject* min_sample_size) {
    if (compare(min_sample_size, integer(0).get(), Py_LT)) {
        raise(PyExc_ValueError,
              format("min_sample_size must be >= 0, got %U.", text(min_sample_size).get()));
    }
}

void require_top_n(PyObject* top_n) {
    if (compare(top_n, integer(1).get(), Py_LT)) {
        raise(PyExc_ValueError, format("top_n must be >= 1, got %U.", text(top_n).get()));
    }
}

}  // namespace search_analytics
