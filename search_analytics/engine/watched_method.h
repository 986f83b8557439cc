// Whether a method is the one that the module made, for whoever asks again and again.
#pragma once

#include "facade/module_state.h"
#include "records/attribute.h"

namespace search_analytics {

// Whether looking up an attribute that is the object's own would run no code.
bool has_plain_names(PyObject* object);

// A method of the engine, as it is found on one object.
class WatchedMethod {
   public:
    // REQUIRES: `object` outlives this.
    WatchedMethod(const ModuleState& state, Arg object, PyObject* name)
        : state_(state), object_(object), name_(name) {}

    // Whether looking the method up would find the engine class's own, and would run no code: no
    // subclass, instance or patch stands in its way.
    bool is_surely_original();

    // Whether `method`, which a look-up has given, is that.
    bool is_original(Arg method) const {
        return is_original_method(state_, object_, name_, method);
    }

   private:
    bool is_as_learned() const;

    const ModuleState& state_;
    PyObject* object_;
    PyObject* name_;
    // The shape in which it was found, and how many attributes of its own an object of that shape
    // could have then, the method not among them; -1 where nothing was found.
    Shape shape_;
    Py_ssize_t attributes_ = -1;
};

}  // namespace search_analytics
