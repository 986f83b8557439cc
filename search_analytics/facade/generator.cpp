// A lazy generator as Python code sees one.
#include "facade/generator.h"

#include <cstddef>

#include "facade/traceback.h"
#include "python/compat.h"
#include "python/containers.h"

namespace search_analytics {

namespace {

struct GeneratorObject {
    PyObject ob_base;
    PyObject* module;
    PyObject* arguments;
    GeneratorStep step;
    const FunctionDescription* function;
    int count;
    int next;      // the step to run next
    bool started;  // a value was asked for
    bool running;  // a step is being worked out
    bool finished;
    PyObject* weak_references;
};

GeneratorObject* as_generator(PyObject* object) {
    return reinterpret_cast<GeneratorObject*>(object);
}

// To be called in a section of the generator.
void require_idle(const GeneratorObject* generator) {
    if (generator->running) {
        raise(PyExc_ValueError, "generator already executing");
    }
}

// Runs `part` of the generator's body, and shows the body in the traceback of an error.
template <typename Part>
auto in_body(GeneratorObject* generator, Part&& part) {
    const Ref keep = Ref::share(reinterpret_cast<PyObject*>(generator));
    return in_generator(state_of(generator->module), *generator->function, part);
}

void start(GeneratorObject* generator) {
    const compat::CriticalSection section(&generator->ob_base);
    require_idle(generator);
    generator->started = true;
    generator->running = true;
}

void stop(GeneratorObject* generator, bool is_finished) {
    const compat::CriticalSection section(&generator->ob_base);
    generator->running = false;
    generator->finished = is_finished;
    generator->next = is_finished ? generator->count : generator->next;
}

// Where a generator stood when it was ended: what is thrown into it arises there.
enum class Stage { kBeforeBody, kInBody, kAfterBody };

// Ends a generator that is idle.
Stage finish(GeneratorObject* generator) {
    const compat::CriticalSection section(&generator->ob_base);
    require_idle(generator);
    generator->next = generator->count;
    if (std::exchange(generator->finished, true)) {
        return Stage::kAfterBody;
    }
    const bool is_inside = generator->started || compat::kThrowsIntoFreshGenerators;
    return is_inside ? Stage::kInBody : Stage::kBeforeBody;
}

bool may_send_first(GeneratorObject* generator, PyObject* value) {
    const compat::CriticalSection section(&generator->ob_base);
    return generator->started || generator->running || value == Py_None;
}

// Runs steps until one yields. An error ends the generator.
std::optional<Ref> advance(GeneratorObject* generator) {
    const Ref keep = Ref::share(reinterpret_cast<PyObject*>(generator));
    const Ref arguments = Ref::share(generator->arguments);
    start(generator);
    try {
        std::optional<Ref> value;
        while (!value && generator->next < generator->count) {
            value =
                generator->step(state_of(generator->module), arguments.get(), generator->next++);
        }
        stop(generator, !value);
        return value;
    } catch (...) {
        if (!thread_is_ending()) {
            stop(generator, true);
        }
        throw;
    }
}

PyObject* iterate(PyObject* self) {
    return at_boundary<PyObject*>(nullptr, [&]() -> PyObject* {
        require_idle(as_generator(self));
        auto value = in_body(as_generator(self), [&] { return advance(as_generator(self)); });
        return value ? value->release() : nullptr;
    });
}

PyObject* send(PyObject* self, PyObject* value) {
    if (!may_send_first(as_generator(self), value)) {
        PyErr_SetString(PyExc_TypeError, "can't send non-None value to a just-started generator");
        return nullptr;
    }
    PyObject* result = iterate(self);
    if (result == nullptr && PyErr_Occurred() == nullptr) {
        PyErr_SetNone(PyExc_StopIteration);
    }
    return result;
}

// From 3.12 on, only an exception alone is thrown without a warning.
void warn_of_old_signature([[maybe_unused]] PyObject* arguments) {
#if PY_VERSION_HEX >= 0x030C0000
    if (tuple_size(arguments) > 1) {
        check(PyErr_WarnEx(PyExc_DeprecationWarning,
                           "the (type, exc, tb) signature of throw() is deprecated, "
                           "use the single-arg signature instead.",
                           1));
    }
#endif
}

// The exception that throw(type, value, traceback) means, a type that is a class: made if need be,
// or the error of making it. With the traceback given; without one, the interpreter decides whether
// the exception's own stays.
Ref made_exception(PyObject* type, PyObject* value, PyObject* traceback) {
    PyObject* error_type = Py_NewRef(type);
    PyObject* error = Py_XNewRef(value);
    PyObject* own_traceback = Py_XNewRef(traceback);
    PyErr_NormalizeException(&error_type, &error, &own_traceback);
    return Ref::steal(compat::exception_with_traceback(error_type, error, own_traceback));
}

// The exception object that throw(type, value, traceback) asks for.
Ref thrown_exception(PyObject* type, PyObject* value, PyObject* traceback) {
    if (traceback == Py_None) {
        traceback = nullptr;
    }
    if (traceback != nullptr && !PyTraceBack_Check(traceback)) {
        raise(PyExc_TypeError, "throw() third argument must be a traceback object");
    }
    if (PyExceptionClass_Check(type)) {
        return made_exception(type, value, traceback);
    }
    if (!PyExceptionInstance_Check(type)) {
        raise(PyExc_TypeError,
              format("exceptions must be classes or instances deriving from BaseException, not %s",
                     Py_TYPE(type)->tp_name));
    }
    if (value != nullptr && value != Py_None) {
        raise(PyExc_TypeError, "instance exception may not have a separate value");
    }
    if (traceback != nullptr) {
        check(PyException_SetTraceback(type, traceback));
    }
    return Ref::share(type);
}

// No step catches anything: the exception ends the generator and comes straight back.
PyObject* throw_into(PyObject* self, PyObject* arguments) {
    return at_boundary<PyObject*>(nullptr, [&]() -> PyObject* {
        PyObject* type = nullptr;
        PyObject* value = nullptr;
        PyObject* traceback = nullptr;
        if (PyArg_UnpackTuple(arguments, "throw", 1, 3, &type, &value, &traceback) == 0) {
            throw ErrorSet();
        }
        warn_of_old_signature(arguments);
        GeneratorObject* generator = as_generator(self);
        const Ref exception = thrown_exception(type, value, traceback);
        const Stage stage = finish(generator);
        // What the caller handles does not become the context.
        compat::restore_raised_exception(exception.copy().release());
        if (stage == Stage::kInBody) {
            in_body(generator, [] { throw ErrorSet(); });
        } else if (stage == Stage::kBeforeBody) {
            show_in_traceback(state_of(generator->module), *generator->function);
        }
        throw ErrorSet();
    });
}

PyObject* close(PyObject* self, PyObject*) {
    return at_boundary<PyObject*>(nullptr, [&] {
        finish(as_generator(self));
        return Ref::none().release();
    });
}

PyObject* represent(PyObject* self) noexcept {
    return PyUnicode_FromFormat("<generator object %s at %p>",
                                as_generator(self)->function->name.c_str(), self);
}

int traverse(PyObject* self, visitproc visit, void* arg) noexcept {
    Py_VISIT(Py_TYPE(self));
    Py_VISIT(as_generator(self)->module);
    Py_VISIT(as_generator(self)->arguments);
    return 0;
}

void deallocate(PyObject* self) {
    const Ref type = Ref::adopt(reinterpret_cast<PyObject*>(Py_TYPE(self)));
    PyObject_GC_UnTrack(self);
    PyObject_ClearWeakRefs(self);
    Py_CLEAR(as_generator(self)->arguments);
    Py_CLEAR(as_generator(self)->module);
    Py_TYPE(self)->tp_free(self);
}

PyObject* get_name(PyObject* self, void*) noexcept {
    return PyUnicode_FromString(as_generator(self)->function->name.c_str());
}

PyGetSetDef attributes[] = {
    {"__name__", get_name, nullptr, nullptr, nullptr},
    {"__qualname__", get_name, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMemberDef members[] = {
    {"__weaklistoffset__", Py_T_PYSSIZET, offsetof(GeneratorObject, weak_references), Py_READONLY,
     nullptr},
    {nullptr, 0, 0, 0, nullptr},
};

PyMethodDef methods[] = {
    {"send", send, METH_O, "send(value) -> next yielded value"},
    {"throw", throw_into, METH_VARARGS,
     "throw(type[, value[, traceback]]) -> raise in the generator"},
    {"close", close, METH_NOARGS, "close() -> end the generator"},
    {nullptr, nullptr, 0, nullptr},
};

PyType_Slot slots[] = {
    {Py_tp_dealloc, reinterpret_cast<void*>(deallocate)},
    {Py_tp_traverse, reinterpret_cast<void*>(traverse)},
    {Py_tp_repr, reinterpret_cast<void*>(represent)},
    {Py_tp_iter, reinterpret_cast<void*>(PyObject_SelfIter)},
    {Py_tp_iternext, reinterpret_cast<void*>(iterate)},
    {Py_tp_methods, methods},
    {Py_tp_getset, attributes},
    {Py_tp_members, members},
    {0, nullptr},
};

PyType_Spec spec = {
    "kestrune.search_analytics.generator",
    sizeof(GeneratorObject),
    0,
    Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_DISALLOW_INSTANTIATION,
    slots,
};

}  // namespace

void create_generator_type(ModuleState& state) {
    Ref type = Ref::steal(PyType_FromModuleAndSpec(state.module, &spec, nullptr));
    // Errors speak of a 'generator' object.
    set_attribute(type, state.words.dunder_name, new_str("generator"));
    state.generator_type = type.release();
}

Ref make_generator(ModuleState& state, const FunctionDescription& function, Ref arguments,
                   GeneratorStep step, int count) {
    auto* type = reinterpret_cast<PyTypeObject*>(state.generator_type);
    Ref made = Ref::steal(type->tp_alloc(type, 0));
    GeneratorObject* generator = as_generator(made.get());
    generator->module = Py_NewRef(state.module);
    generator->arguments = arguments.release();
    generator->step = step;
    generator->function = &function;
    generator->count = count;
    return made;
}

}  // namespace search_analytics
