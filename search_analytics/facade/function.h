// Functions that Python code cannot tell from those of a `def` statement but by their speed:
// live defaults, annotations, attributes, binding as methods, pickling by name, and the
// interpreter's own words for a wrong call.
#pragma once

#include "facade/signature.h"

namespace search_analytics {

// One call as the implementation sees it: every parameter has its value, all borrowed from the
// caller or from the function's defaults, and valid until the implementation returns.
class Call {
   public:
    Call(ModuleState& state, PyObject* names, PyObject* const* arguments,
         std::string_view function_name) noexcept
        : state_(state), names_(names), arguments_(arguments), function_name_(function_name) {}

    ModuleState& state() const { return state_; }
    const Names& names() const { return state_.names(); }

    // The argument of a parameter, by its interned name; SystemError where there is none of it.
    PyObject* operator[](PyObject* name) const;

    // The name that the function's description gives it.
    std::string_view function_name() const { return function_name_; }

    // callable(name=argument, ...) with every argument of this call.
    Ref forward_to(Arg callable) const;

   private:
    ModuleState& state_;
    PyObject* names_;
    PyObject* const* arguments_;
    std::string_view function_name_;
};

// Makes the type of the module's functions, and stores it in the state.
void create_function_type(ModuleState& state);

// A function of the module, or a method of the class `class_name` of the module. Both the
// description and the name of the class must outlive it.
Ref make_function(ModuleState& state, const FunctionDescription& description);
Ref make_method(ModuleState& state, const FunctionDescription& description,
                std::string_view class_name);

// A module function with the name and the parameters of a method, without its `self`, that
// runs `implementation` instead.
Ref make_forwarder(ModuleState& state, const FunctionDescription& method,
                   Ref (*implementation)(const Call& call));

}  // namespace search_analytics
