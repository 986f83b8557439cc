// The interpreter's API. Every other file reaches it through this header, so that the
// preprocessor sees it first and with the same settings everywhere.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <frameobject.h>
