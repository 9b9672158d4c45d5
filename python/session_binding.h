#pragma once

#include <pybind11/pybind11.h>

namespace velpick::python {

/// Adds velpick.Session: repeated picks and growing brush strokes of one mesh in one view.
void RegisterSession(pybind11::module_& module);

}  // namespace velpick::python
