// A number that values of records are compared with.
#pragma once

#include "python/number.h"

namespace search_analytics {

// Exact floats are compared directly, all else by the objects' own operators.
class Bound {
   public:
    explicit Bound(Ref value)
        : value_(std::move(value)),
          is_float_(is_exact_float(value_)),
          double_(is_float_ ? as_double(value_) : 0.0) {}

    // Whether comparing it with a float runs no code.
    bool is_float() const { return is_float_; }

    // value < bound. REQUIRES for a double: is_float().
    bool exceeds(double value) const {
        assert(is_float_);
        return value < double_;
    }
    bool exceeds(Arg value) const {
        return is_float_ && is_exact_float(value) ? exceeds(as_double(value))
                                                  : compare(value, value_, Py_LT);
    }

    // value >= bound. REQUIRES for a double: is_float().
    bool is_reached_by(double value) const {
        assert(is_float_);
        return value >= double_;
    }
    bool is_reached_by(Arg value) const {
        return is_float_ && is_exact_float(value) ? is_reached_by(as_double(value))
                                                  : compare(value, value_, Py_GE);
    }

   private:
    Ref value_;
    bool is_float_;
    double double_;
};

}  // namespace search_analytics
