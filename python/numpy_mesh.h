#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <pybind11/numpy.h>

#include "array_mesh.h"

namespace velpick::python {

/// One mesh's numpy arrays, checked and viewed in place (C order, Fortran order or strided):
/// vertices float32 or float64 (N, 3), faces of any integer type (M, 3), markable None or
/// bool (M,). Sequences that are not arrays are converted once, vertices to float64 and faces
/// to int64. Construct and destroy with the GIL held; Build() makes no Python call and may run
/// without it while this object keeps the arrays alive.
class NumpyMesh {
  public:
    /// Throws pybind11::value_error naming `label` + "vertices", "faces" or "markable" when an
    /// array has the wrong type or shape. `label` is "" for pick() and "meshes[i]." otherwise.
    NumpyMesh(const pybind11::handle& vertices, const pybind11::handle& faces,
              const pybind11::handle& markable, std::string label);

    std::size_t FaceCount() const { return m_faceCount; }
    bool HasMarkable() const { return m_markable.has_value(); }
    /// Converts the vertices to internal units and builds the host mesh (see BuildArrayMesh).
    /// Throws ArrayMeshError, its message prefixed with the label.
    ArrayMesh Build(double unitsPerModelUnit) const;

  private:
    pybind11::array m_vertices, m_faces;
    std::optional<pybind11::array> m_markable;
    std::string m_label;
    std::size_t m_faceCount = 0;
    std::function<ArrayMesh(double)> m_build;
};

}  // namespace velpick::python
