// Attributes, truth, comparison and calls.
#include "python/object.h"

namespace search_analytics {

Ref Keywords::call(Arg callable) const {
    const Ref names = Ref::steal(PyTuple_New(static_cast<Py_ssize_t>(names_.size())));
    std::vector<PyObject*> stack;
    stack.reserve(values_.size());
    for (std::size_t i = 0; i < names_.size(); ++i) {
        PyTuple_SET_ITEM(names.get(), static_cast<Py_ssize_t>(i), Py_NewRef(names_[i]));
        stack.push_back(values_[i].get());
    }
    return Ref::steal(PyObject_Vectorcall(callable, stack.data(), 0, names.get()));
}

}  // namespace search_analytics
