// The module's functions over the daily job: sync, pending, mark.
#pragma once

#include <pybind11/pybind11.h>

void bind_sync(pybind11::module_& m);
