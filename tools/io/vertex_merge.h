#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <vector>

#include <velpick/host/stl_base.h>

namespace velpick::detail {

/// A coordinate in model units as internal units: scaled, rounded half away from zero; nothing
/// when the result leaves the 32-bit range or is not a number.
inline std::optional<std::int32_t> ToInternalUnits(double coordinate, double unitsPerModelUnit) {
    const double rounded = std::round(coordinate * unitsPerModelUnit);
    if (!(rounded >= -2147483648.0 && rounded <= 2147483647.0))  // NaN fails too
        return std::nullopt;
    return static_cast<std::int32_t>(rounded);
}

/// The mesh vertices of input vertices given in internal units (x, y, z of input vertex i at
/// 3i, 3i + 1, 3i + 2): input vertices at equal positions share one mesh vertex, made when
/// first asked for, so that mesh vertices are numbered in order of first appearance.
class MergedVertices {
  public:
    /// Keeps a reference to `units`, which must outlive this object.
    MergedVertices(MStlBase& mesh, const std::vector<std::int32_t>& units);
    const MStlPoint& Of(std::uint32_t inputVertex);
    /// The number (mask index) of the mesh vertex of an input vertex, made when first asked for.
    std::uint32_t NumberOf(std::uint32_t inputVertex);

  private:
    MStlBase& m_mesh;
    const std::vector<std::int32_t>& m_units;
    std::vector<std::uint32_t> m_first;       // first input vertex at the same position
    std::vector<std::uint32_t> m_meshVertex;  // by first input vertex; UINT32_MAX until made
};

}  // namespace velpick::detail
