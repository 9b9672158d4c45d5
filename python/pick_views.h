#pragma once

#include <pybind11/pybind11.h>

#include "held_mesh.h"

namespace velpick::python {

/// velpick.pick_views: every camera's pick of one held mesh, in parallel without the GIL.
/// `reduce` None gives a bool array (views, faces), "any" a bool per face, "count" a uint32
/// per face. `progress` is None, a callable (done, total) or True (a tqdm bar where tqdm is
/// installed); it is called from the calling thread while the views run.
pybind11::object PickViews(HeldMesh& mesh, const pybind11::sequence& cameras,
                           const pybind11::object& region, const pybind11::object& reduce,
                           const pybind11::object& progress, const pybind11::kwargs& keywords);

}  // namespace velpick::python
