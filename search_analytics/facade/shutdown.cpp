// The end of the interpreter.
#include "facade/shutdown.h"

#include "facade/statement.h"
#include "python/containers.h"

namespace search_analytics {

namespace {

PyObject* note_interpreter_end(PyObject*, PyObject*) {
    threads_may_be_ended.store(true, std::memory_order_relaxed);
    return Py_NewRef(Py_None);
}

PyMethodDef end_notice = {"note_interpreter_end", note_interpreter_end, METH_NOARGS, nullptr};

}  // namespace

// Only the main interpreter's end ends threads, those of other interpreters among them: these do
// not learn of it, and are prepared from the start. One notice does for all copies of the module,
// and keeps none of them alive.
void watch_for_interpreter_end(ModuleState& state) {
    if (PyInterpreterState_Get() != PyInterpreterState_Main()) {
        threads_may_be_ended.store(true, std::memory_order_relaxed);
        return;
    }
    PyObject* registry = PyInterpreterState_GetDict(PyInterpreterState_Get());
    if (registry == nullptr) {
        throw std::bad_alloc();  // it could not be made; the interpreter sets no error
    }
    const Ref mark = new_str("kestrune.search_analytics.note_interpreter_end");
    if (dict_entry(registry, mark)) {
        return;
    }
    const Ref notice = Ref::steal(PyCFunction_New(&end_notice, nullptr));
    const Ref enroll = import_statement(state, "from atexit import register", new_str("register"));
    call(enroll, notice);
    check(PyDict_SetItem(registry, mark.get(), notice.get()));
}

}  // namespace search_analytics
