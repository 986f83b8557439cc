// Whether a method is the one that the module made.
#include "engine/watched_method.h"

namespace search_analytics {

bool has_plain_names(PyObject* object) {
    // What stands in the array of attributes is named by texts.
    return Shape(object).array(object) != nullptr || names_are_texts(object);
}

bool WatchedMethod::is_as_learned() const {
    return attributes_ >= 0 && shape_.fits(object_) && instance_values(object_) != nullptr &&
           numbered_attributes(shape_.type()) == attributes_;
}

bool WatchedMethod::is_surely_original() {
    if (is_as_learned()) [[likely]] {
        return true;
    }
    attributes_ = -1;
    shape_ = Shape(object_);
    // A descriptor of somebody else's would run code, and so would a name that is no text.
    if (!shape_.is_ordinary() ||
        !is_original_function(state_, name_, class_member(object_, name_)) ||
        !has_plain_names(object_) || !is_original(own_attribute(object_, name_))) {
        return false;
    }
    if (shape_.has_array() && attribute_number(shape_.type(), name_) < 0) {
        attributes_ = numbered_attributes(shape_.type());
    }
    return true;
}

}  // namespace search_analytics
