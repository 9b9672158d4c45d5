#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <velpick/host/stl_base.h>

namespace velpick::detail {

/// A coordinate in model units as internal units: scaled, rounded half away from zero; nothing
/// when the result leaves the 32-bit range or is not a number.
inline std::optional<std::int32_t> ToInternalUnits(double coordinate, double unitsPerModelUnit) {
    const double scaled = coordinate * unitsPerModelUnit;
    // The rounded value fits exactly when the scaled one lies strictly between -2^31 - 1/2 and
    // 2^31 - 1/2 (both exact in double). NaN fails too.
    if (!(scaled > -2147483648.5 && scaled < 2147483647.5))
        return std::nullopt;
    // Rounding without a library call: the part after the point, scaled minus its truncation,
    // is exact, so comparing it with one half decides as std::round does.
    const auto truncated = static_cast<std::int64_t>(scaled);
    const double fraction = scaled - static_cast<double>(truncated);
    return static_cast<std::int32_t>(truncated + (fraction >= 0.5) - (fraction <= -0.5));
}

/// For each of `count` input vertices given in internal units (x, y, z of input vertex i at
/// units[3i], [3i + 1], [3i + 2]), the first input vertex at the same position, written to
/// first[i]: i itself for the first vertex at a position.
void FindFirstOfEqualVertices(const std::int32_t* units, std::size_t count, std::uint32_t* first);

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
    /// The number of distinct positions among the input vertices: at most this many mesh
    /// vertices are made.
    std::size_t PositionCount() const { return m_positionCount; }

  private:
    MStlBase& m_mesh;
    const std::vector<std::int32_t>& m_units;
    std::vector<std::uint32_t> m_first;       // first input vertex at the same position
    std::vector<std::uint32_t> m_meshVertex;  // by first input vertex; UINT32_MAX until made
    std::size_t m_positionCount = 0;
};

}  // namespace velpick::detail
