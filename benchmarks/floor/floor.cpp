// What Python calls of the read floor: a function for each operation.
#include "loops.h"
#include "memory.h"

#include <new>

namespace floor_reads {
namespace {

// Parses (records, function_family, feature_subfamily, ...) by `format`, then calls
// `read(names, records)`.
template <class Read, class... Rest>
PyObject* run(PyObject* module, PyObject* arguments, const char* format, const Read& read,
              Rest*... rest) {
    PyObject* list = nullptr;
    PyObject* family = nullptr;
    PyObject* subfamily = nullptr;
    if (PyArg_ParseTuple(arguments, format, &list, &family, &subfamily, rest...) == 0) {
        return nullptr;
    }
    try {
        const Names& names = *static_cast<const Names*>(PyModule_GetState(module));
        const Kept kept(names, list, family, subfamily);
        read(names, kept.records());
    } catch (const Failed&) {
        return nullptr;
    }
    return Py_NewRef(Py_None);
}

PyObject* stats(PyObject* module, PyObject* arguments) {
    std::array<PyObject*, 3> keys{};
    PyObject* function_key = nullptr;
    PyObject* feature_key = nullptr;
    const auto read = [&](const Names& names, Records records) {
        read_stats(names, records, keys, function_key, feature_key);
    };
    return run(module, arguments, "OOO(OOO)OO", read, &keys[0], &keys[1], &keys[2], &function_key,
               &feature_key);
}

PyObject* patterns(PyObject* module, PyObject* arguments) {
    return run(module, arguments, "OOO", read_patterns);
}

PyObject* pairs(PyObject* module, PyObject* arguments) {
    return run(module, arguments, "OOO", read_pairs);
}

PyObject* velocity(PyObject* module, PyObject* arguments) {
    PyObject* windows = nullptr;
    double now = 0.0;
    const auto read = [&](const Names& names, Records records) {
        read_velocity(names, records, windows, now);
    };
    return run(module, arguments, "OOOOd", read, &windows, &now);
}

PyObject* yields(PyObject* module, PyObject* arguments) {
    double cutoff = 0.0;
    const auto read = [&](const Names& names, Records records) {
        read_yields(names, records, cutoff);
    };
    return run(module, arguments, "OOOd", read, &cutoff);
}

PyObject* queries(PyObject* module, PyObject* arguments) {
    PyObject* connection = nullptr;
    PyObject* probe = nullptr;
    PyObject* statements = nullptr;
    const auto send = [&](const Names& names, Records records) {
        send_queries(names, records, connection, probe, statements);
    };
    return run(module, arguments, "OOOOOO!", send, &connection, &probe, &PyDict_Type, &statements);
}

// (bytes) -> nanoseconds for a line of so much memory: one by one, and read ahead.
PyObject* memory(PyObject*, PyObject* arguments) {
    Py_ssize_t bytes = 0;
    if (PyArg_ParseTuple(arguments, "n", &bytes) == 0) {
        return nullptr;
    }
    const Lines lines(static_cast<std::size_t>(bytes));
    return Py_BuildValue("dd", lines.one_by_one(), lines.read_ahead());
}

PyMethodDef functions[] = {
    {"stats", stats, METH_VARARGS, nullptr},
    {"patterns", patterns, METH_VARARGS, nullptr},
    {"pairs", pairs, METH_VARARGS, nullptr},
    {"velocity", velocity, METH_VARARGS, nullptr},
    {"yields", yields, METH_VARARGS, nullptr},
    {"queries", queries, METH_VARARGS, nullptr},
    {"memory", memory, METH_VARARGS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                          "floor_reads",
                          nullptr,
                          sizeof(Names),
                          functions,
                          nullptr,
                          nullptr,
                          nullptr,
                          nullptr};

}  // namespace
}  // namespace floor_reads

PyMODINIT_FUNC PyInit_floor_reads() {
    PyObject* module = PyModule_Create(&floor_reads::definition);
    if (module != nullptr) {
        try {
            new (PyModule_GetState(module)) floor_reads::Names();
        } catch (const floor_reads::Failed&) {
            Py_DECREF(module);
            return nullptr;
        }
    }
    return module;
}
