// A wrapper in front of every function that can fail and that the module calls: the linker puts
// `__wrap_name` in its place (CMakeLists.txt reads the names from here). A call that was chosen
// does nothing, and fails as the function itself would.
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <new>
#include <type_traits>

#include "controller.h"
#include "python/compat.h"
#include "python/error.h"

namespace {

template <typename Function, std::size_t Place>
struct ParameterOf;

template <typename Result, typename First, typename... Rest, std::size_t Place>
struct ParameterOf<Result(First, Rest...), Place> : ParameterOf<Result(Rest...), Place - 1> {};

template <typename Result, typename First, typename... Rest>
struct ParameterOf<Result(First, Rest...), 0> {
    using Type = First;
};

template <typename Function>
struct ResultOf;

template <typename Result, typename... Parameters>
struct ResultOf<Result(Parameters...)> {
    using Type = Result;
};

// Sets the error, and returns what says so: null, or -1.
template <typename Result>
Result failed() {
    faults::set_error();
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else if constexpr (!std::is_void_v<Result>) {
        return static_cast<Result>(-1);
    }
}

long live_blocks = 0;

}  // namespace

#define P(name, place) ParameterOf<decltype(name), place>::Type
#define FAULTS(name, parameters, arguments)                              \
    extern "C" decltype(name) __real_##name;                             \
    extern "C" ResultOf<decltype(name)>::Type __wrap_##name parameters { \
        if (faults::is_chosen(__builtin_frame_address(0))) {             \
            return failed<ResultOf<decltype(name)>::Type>();             \
        }                                                                \
        return __real_##name arguments;                                  \
    }
#define FAULTS_0(name) FAULTS(name, (), ())
#define FAULTS_1(name) FAULTS(name, (P(name, 0) a), (a))
#define FAULTS_2(name) FAULTS(name, (P(name, 0) a, P(name, 1) b), (a, b))
#define FAULTS_3(name) FAULTS(name, (P(name, 0) a, P(name, 1) b, P(name, 2) c), (a, b, c))
#define FAULTS_4(name) \
    FAULTS(name, (P(name, 0) a, P(name, 1) b, P(name, 2) c, P(name, 3) d), (a, b, c, d))
#define FAULTS_5(name)                                                                   \
    FAULTS(name, (P(name, 0) a, P(name, 1) b, P(name, 2) c, P(name, 3) d, P(name, 4) e), \
           (a, b, c, d, e))

// By the number of their parameters. Those that give nothing back set another error than they were
// asked to, as they do where there is no memory for it.
FAULTS_0(PyErr_CheckSignals)
FAULTS_1(PyDict_Copy)
FAULTS_1(PyDict_Items)
FAULTS_0(PyDict_New)
FAULTS_1(PyErr_SetNone)
FAULTS_1(PyFloat_FromDouble)
FAULTS_1(PyFrozenSet_New)
FAULTS_1(PyImport_ImportModule)
FAULTS_1(PyIter_Next)
FAULTS_1(PyList_AsTuple)
FAULTS_1(PyList_New)
FAULTS_1(PyList_Sort)
FAULTS_1(PyLong_AsSsize_t)
FAULTS_1(PyLong_FromSsize_t)
FAULTS_1(PyNumber_Float)
FAULTS_1(PyNumber_Negative)
FAULTS_1(PyObject_CallNoArgs)
FAULTS_1(PyObject_GetIter)
FAULTS_1(PyObject_Hash)
FAULTS_1(PyObject_IsTrue)
FAULTS_1(PyObject_Size)
FAULTS_1(PyObject_Str)
FAULTS_1(PySequence_List)
FAULTS_1(PySet_New)
FAULTS_1(PyTuple_New)
FAULTS_1(PyUnicode_FromString)
FAULTS_1(PyUnicode_InternFromString)
FAULTS_1(Py_EnterRecursiveCall)
FAULTS_2(PyDescr_NewGetSet)
FAULTS_2(PyDict_GetItemWithError)
FAULTS_2(PyDict_Update)
FAULTS_2(PyErr_SetObject)
FAULTS_2(PyErr_SetString)
FAULTS_2(PyFunction_SetDefaults)
FAULTS_2(PyList_Append)
FAULTS_2(PyMethod_New)
FAULTS_2(PyNumber_Add)
FAULTS_2(PyNumber_InPlaceAdd)
FAULTS_2(PyNumber_Multiply)
FAULTS_2(PyNumber_Subtract)
FAULTS_2(PyNumber_TrueDivide)
FAULTS_2(PyObject_CallObject)
FAULTS_2(PyObject_DelItem)
FAULTS_2(PyObject_Format)
FAULTS_2(PyObject_GetAttr)
FAULTS_2(PyObject_GetItem)
FAULTS_2(PySequence_Contains)
FAULTS_2(PySet_Add)
FAULTS_2(PyUnicode_Join)
FAULTS_3(PyCode_NewEmpty)
FAULTS_3(PyDict_SetItem)
FAULTS_3(PyEval_EvalCode)
FAULTS_3(PyFunction_NewWithQualName)
FAULTS_3(PyLong_FromString)
FAULTS_3(PyObject_Call)
FAULTS_3(PyObject_RichCompare)
FAULTS_3(PyObject_RichCompareBool)
FAULTS_3(PyObject_SetAttr)
FAULTS_3(PyObject_SetItem)
FAULTS_3(PySlice_New)
FAULTS_3(PyType_FromModuleAndSpec)
FAULTS_3(PyUnicode_RichCompare)
FAULTS_1(PyTraceBack_Here)
FAULTS_1(PyUnicode_AsUTF8)
FAULTS_2(PyWeakref_NewRef)
FAULTS_2(PyObject_IsSubclass)
FAULTS_2(PyUnicode_FromStringAndSize)
FAULTS_3(PyCapsule_New)
FAULTS_3(PyObject_SetAttrString)
FAULTS_4(PyList_SetSlice)
FAULTS_4(PyFrame_New)
FAULTS_4(PyCMethod_New)
FAULTS_4(PyObject_Vectorcall)
FAULTS_4(PyObject_VectorcallMethod)
FAULTS_5(PyUnicode_Tailmatch)
FAULTS_5(Py_CompileStringExFlags)
#if PY_VERSION_HEX >= 0x030D0000
FAULTS_3(PyObject_GetOptionalAttr)
#else
FAULTS_3(_PyObject_LookupAttr)
#endif

// Takes the item over even where it fails.
extern "C" decltype(PyList_SetItem) __real_PyList_SetItem;
extern "C" int __wrap_PyList_SetItem(PyObject* list, Py_ssize_t place, PyObject* item) {
    if (faults::is_chosen(__builtin_frame_address(0))) {
        Py_XDECREF(item);
        return failed<int>();
    }
    return __real_PyList_SetItem(list, place, item);
}

// Says that it failed, but sets no error.
extern "C" decltype(PyInterpreterState_GetDict) __real_PyInterpreterState_GetDict;
extern "C" PyObject* __wrap_PyInterpreterState_GetDict(PyInterpreterState* interpreter) {
    if (faults::is_chosen(__builtin_frame_address(0))) {
        return nullptr;
    }
    return __real_PyInterpreterState_GetDict(interpreter);
}

// Says nothing: the string stays as it is.
extern "C" decltype(PyUnicode_InternInPlace) __real_PyUnicode_InternInPlace;
extern "C" void __wrap_PyUnicode_InternInPlace(PyObject** text) {
    if (!faults::is_chosen(__builtin_frame_address(0))) {
        __real_PyUnicode_InternInPlace(text);
    }
}

#if PY_VERSION_HEX < 0x030C0000
// Puts the error that came in between into the place of the one that it was given.
extern "C" decltype(PyErr_NormalizeException) __real_PyErr_NormalizeException;
extern "C" void __wrap_PyErr_NormalizeException(PyObject** type, PyObject** value,
                                                PyObject** traceback) {
    if (faults::is_chosen(__builtin_frame_address(0))) {
        Py_CLEAR(*type);
        Py_CLEAR(*value);
        Py_CLEAR(*traceback);
        // Only what the interpreter runs out of can come in between.
        PyErr_NoMemory();
        PyErr_Fetch(type, value, traceback);
    }
    __real_PyErr_NormalizeException(type, value, traceback);
}
#endif

// Those that take any number of arguments, in the words of others that do the same.
extern "C" PyObject* __wrap_PyUnicode_FromFormat(const char* format, ...) {
    if (faults::is_chosen(__builtin_frame_address(0))) {
        return failed<PyObject*>();
    }
    va_list values;
    va_start(values, format);
    PyObject* text = PyUnicode_FromFormatV(format, values);
    va_end(values);
    return text;
}

extern "C" PyObject* __wrap_PyErr_Format(PyObject* type, const char* format, ...) {
    if (faults::is_chosen(__builtin_frame_address(0))) {
        return failed<PyObject*>();
    }
    va_list values;
    va_start(values, format);
    PyErr_FormatV(type, format, values);
    va_end(values);
    return nullptr;
}

extern "C" decltype(PyTuple_New) __real_PyTuple_New;
extern "C" PyObject* __wrap_PyTuple_Pack(Py_ssize_t count, ...) {
    if (faults::is_chosen(__builtin_frame_address(0))) {
        return failed<PyObject*>();
    }
    PyObject* tuple = __real_PyTuple_New(count);
    va_list items;
    va_start(items, count);
    for (Py_ssize_t i = 0; tuple != nullptr && i < count; ++i) {
        PyTuple_SET_ITEM(tuple, i, Py_NewRef(va_arg(items, PyObject*)));
    }
    va_end(items);
    return tuple;
}

namespace {

// What a format of Py_BuildValue makes of values.
PyObject* built(const char* format, va_list values) { return Py_VaBuildValue(format, values); }

}  // namespace

#define FAULTS_BUILD(name)                                        \
    extern "C" PyObject* __wrap_##name(const char* format, ...) { \
        if (faults::is_chosen(__builtin_frame_address(0))) {      \
            return failed<PyObject*>();                           \
        }                                                         \
        va_list values;                                           \
        va_start(values, format);                                 \
        PyObject* value = built(format, values);                  \
        va_end(values);                                           \
        return value;                                             \
    }
#define FAULTS_CALL(name)                                                               \
    extern "C" PyObject* __wrap_##name(PyObject* callable, const char* format, ...) {   \
        if (faults::is_chosen(__builtin_frame_address(0))) {                            \
            return failed<PyObject*>();                                                 \
        }                                                                               \
        va_list values;                                                                 \
        va_start(values, format);                                                       \
        PyObject* value = built(format, values);                                        \
        va_end(values);                                                                 \
        PyObject* result = nullptr;                                                     \
        if (value != nullptr) {                                                         \
            result = PyTuple_Check(value) ? __real_PyObject_CallObject(callable, value) \
                                          : PyObject_CallOneArg(callable, value);       \
            Py_DECREF(value);                                                           \
        }                                                                               \
        return result;                                                                  \
    }

#undef Py_BuildValue
#undef PyObject_CallFunction
FAULTS_BUILD(Py_BuildValue)
FAULTS_BUILD(_Py_BuildValue_SizeT)
FAULTS_CALL(PyObject_CallFunction)
FAULTS_CALL(_PyObject_CallFunction_SizeT)

// Its result says that it failed by 0. Nobody unpacks more than four.
extern "C" decltype(PyArg_UnpackTuple) __real_PyArg_UnpackTuple;
extern "C" int __wrap_PyArg_UnpackTuple(PyObject* tuple, const char* name, Py_ssize_t least,
                                        Py_ssize_t most, ...) {
    if (faults::is_chosen(__builtin_frame_address(0))) {
        faults::set_error();
        return 0;
    }
    constexpr Py_ssize_t kMost = 4;
    PyObject** places[kMost] = {};
    va_list values;
    va_start(values, most);
    for (Py_ssize_t i = 0; i < most && i < kMost; ++i) {
        places[i] = va_arg(values, PyObject**);
    }
    va_end(values);
    return __real_PyArg_UnpackTuple(tuple, name, least, most, places[0], places[1], places[2],
                                    places[3]);
}

// A turn of the others, which may bring any error. The clock goes on by ten milliseconds at each
// look, so that all runs take the same turns.
extern "C" bool __real__ZN16search_analytics19take_turns_by_clockEv();
extern "C" bool __wrap__ZN16search_analytics19take_turns_by_clockEv() {
    if (faults::is_chosen(__builtin_frame_address(0))) {
        faults::set_error();
        throw search_analytics::ErrorSet();
    }
    const bool had_turn = __real__ZN16search_analytics19take_turns_by_clockEv();
    faults::make_turn_due();
    return had_turn;
}

extern "C" std::chrono::steady_clock::time_point __real__ZNSt6chrono3_V212steady_clock3nowEv();
extern "C" std::chrono::steady_clock::time_point __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
    static auto moment = __real__ZNSt6chrono3_V212steady_clock3nowEv();
    return moment += std::chrono::milliseconds(10);
}

// Memory for C++. What is still in use is counted.
#define FAULTS_NEW(name, parameters, arguments, fail)        \
    extern "C" void* __real_##name parameters;               \
    extern "C" void* __wrap_##name parameters {              \
        if (faults::is_chosen(__builtin_frame_address(0))) { \
            fail;                                            \
        }                                                    \
        ++live_blocks;                                       \
        return __real_##name arguments;                      \
    }
#define FAULTS_DELETE(name, parameters, arguments) \
    extern "C" void __real_##name parameters;      \
    extern "C" void __wrap_##name parameters {     \
        live_blocks -= block != nullptr ? 1 : 0;   \
        __real_##name arguments;                   \
    }

FAULTS_NEW(_Znwm, (std::size_t size), (size), throw std::bad_alloc())
FAULTS_NEW(_Znam, (std::size_t size), (size), throw std::bad_alloc())
FAULTS_NEW(_ZnwmRKSt9nothrow_t, (std::size_t size, const std::nothrow_t& tag), (size, tag),
           return nullptr)
FAULTS_DELETE(_ZdlPv, (void* block), (block))
FAULTS_DELETE(_ZdaPv, (void* block), (block))
FAULTS_DELETE(_ZdaPvm, (void* block, std::size_t size), (block, size))
FAULTS_DELETE(_ZdlPvm, (void* block, std::size_t size), (block, size))

// How many blocks that operator new gave out are in use.
extern "C" [[gnu::visibility("default")]] long faults_live_blocks() { return live_blocks; }
