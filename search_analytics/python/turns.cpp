// Taking turns with the rest of the process.
#include "python/turns.h"

#include <algorithm>
#include <chrono>

#include "python/containers.h"

namespace search_analytics {

namespace {

using Clock = std::chrono::steady_clock;

// The switch interval of threads is five milliseconds unless somebody changes it.
constexpr Clock::duration kBetweenTurns = std::chrono::milliseconds(1);

// When the last turn ended, of whichever thread.
std::atomic<Clock::rep> last_turn = 0;

// A code object that does nothing, made once for each interpreter.
Ref idle_code() {
    PyObject* registry = PyInterpreterState_GetDict(PyInterpreterState_Get());
    if (registry == nullptr) {
        throw std::bad_alloc();  // it could not be made; the interpreter sets no error
    }
    const Ref mark = new_str("kestrune.search_analytics.idle_code");
    if (auto known = dict_entry(registry, mark)) {
        return std::move(*known);
    }
    Ref made = Ref::steal(Py_CompileString("None", "<search_analytics>", Py_eval_input));
    set_item(registry, mark, made);
    return made;
}

// Runs a code object that does nothing. The interpreter does then what it does at the start of any
// function: it lets another thread run that waits for its lock, collects garbage, runs what other
// threads have asked for. Tracers and profilers do not see it.
void run_idle_code() {
    const Ref code = idle_code();
    const Ref nothing = new_dict();
    compat::pause_tracing();
    PyObject* result = PyEval_EvalCode(code.get(), nothing.get(), nothing.get());
    compat::resume_tracing();
    if (result != nullptr) {
        Ref::adopt(result);
        return;
    }
    const bool is_lack_of_room = error_is(PyExc_RecursionError) || error_is(PyExc_MemoryError);
    // Without an entry of the code's own, there was no room to run it. The turn is given another
    // time.
    if (!hide_in_traceback(code) && is_lack_of_room) {
        forget_error();
        return;
    }
    throw ErrorSet();
}

}  // namespace

void give_turn() {
    check(PyErr_CheckSignals());
    run_idle_code();
    last_turn.store(Clock::now().time_since_epoch().count(), std::memory_order_relaxed);
}

// Out of the collector's sight nobody finds the list while it becomes shorter.
void drop_in_turns(Ref list) {
    constexpr Py_ssize_t kAtOnce = 64;
    if (!compat::kHasLock || !is_exact_list(list) || Py_REFCNT(list.get()) != 1) {
        return;
    }
    PyObject_GC_UnTrack(list.get());
    while (list_size(list) > 0) {
        const Py_ssize_t size = list_size(list);
        const Py_ssize_t rest = std::max<Py_ssize_t>(size - kAtOnce, 0);
        if (PyList_SetSlice(list.get(), rest, size, nullptr) != 0) {
            forget_error();  // there is no memory to do it in parts
            return;
        }
        take_turns_after(kAtOnce * kWorkOfStep);
    }
}

bool take_turns_by_clock() {
    work_since_look.store(0, std::memory_order_relaxed);
    const auto now = Clock::now().time_since_epoch().count();
    if (now - last_turn.load(std::memory_order_relaxed) < kBetweenTurns.count()) {
        return false;
    }
    give_turn();
    return true;
}

}  // namespace search_analytics
