// The interpreter's API. Every other file reaches it through this header, so that the
// preprocessor sees it first and with the same settings everywhere.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <frameobject.h>

#if defined(Py_DEBUG) != SEARCH_ANALYTICS_PY_DEBUG
#error "These are the headers of another build of Python: one is a debug build, one is not"
#endif
#if defined(Py_GIL_DISABLED) != SEARCH_ANALYTICS_PY_GIL_DISABLED
#error "These are the headers of another build of Python: one is free-threaded, one is not"
#endif
