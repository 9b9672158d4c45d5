#include "array_mesh.h"

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <velpick/host/internal_units.h>
#include <velpick/host/stl_surface.h>
#include "vertex_merge.h"

namespace velpick::python {
namespace {

constexpr std::uint32_t kNoVertex = UINT32_MAX;  // vertex numbers are 32-bit
const char* const kAxisNames[3] = {"x", "y", "z"};

// The importer's rule: scale, round half away from zero, refuse what leaves 32 bits.
template <class Coordinate>
std::vector<std::int32_t> ToInternalUnits(const StridedArray<Coordinate>& vertices) {
    if (vertices.rows >= kNoVertex)
        throw ArrayMeshError("vertices: more than 4294967294 rows");
    const double unitsPerModelUnit = VelSDK::Common::MInternalUnits::Get();
    std::vector<std::int32_t> units(3 * vertices.rows);
    for (std::size_t v = 0; v < vertices.rows; ++v) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double coordinate = static_cast<double>(vertices.At(v, axis));
            const std::optional<std::int32_t> unit =
                detail::ToInternalUnits(coordinate, unitsPerModelUnit);
            if (!unit)
                throw ArrayMeshError("vertices: vertex " + std::to_string(v) + ": coordinate " +
                                     kAxisNames[axis] + " = " + std::to_string(coordinate) +
                                     " is out of range in internal units");
            units[3 * v + axis] = *unit;
        }
    }
    return units;
}

template <class Index>
std::string IndexText(Index index) {
    if constexpr (std::is_signed_v<Index>)
        return std::to_string(static_cast<long long>(index));
    else
        return std::to_string(static_cast<unsigned long long>(index));
}

template <class Index>
void CheckFaces(const StridedArray<Index>& faces, std::size_t vertexCount) {
    for (std::size_t f = 0; f < faces.rows; ++f) {
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const Index index = faces.At(f, corner);
            const bool negative = std::is_signed_v<Index> && index < Index{0};
            if (negative || static_cast<std::uint64_t>(index) >= vertexCount)
                throw ArrayMeshError("faces: face " + std::to_string(f) + " uses vertex " +
                                     IndexText(index) + " but vertices has " +
                                     std::to_string(vertexCount) + " rows");
        }
    }
}

}  // namespace

template <class Coordinate, class Index>
ArrayMesh BuildArrayMesh(const MeshArrays<Coordinate, Index>& arrays) {
    std::vector<std::int32_t> units = ToInternalUnits(arrays.vertices);
    CheckFaces(arrays.faces, arrays.vertices.rows);

    auto mesh = std::make_unique<MStlBase>();
    detail::MergedVertices vertices(*mesh, units);
    // Reserving allocates: rows at repeated positions would only take memory.
    mesh->Reserve(vertices.PositionCount(), arrays.faces.rows);
    MStlSurface& markable = *mesh->AddSurface(nullptr);
    MStlSurface* fixed = arrays.markable ? mesh->AddSurface(nullptr) : &markable;
    for (std::size_t f = 0; f < arrays.faces.rows; ++f) {
        const bool mayMark = !arrays.markable || arrays.markable->At(f) != 0;
        const MStlPoint& a = vertices.Of(static_cast<std::uint32_t>(arrays.faces.At(f, 0)));
        const MStlPoint& b = vertices.Of(static_cast<std::uint32_t>(arrays.faces.At(f, 1)));
        const MStlPoint& c = vertices.Of(static_cast<std::uint32_t>(arrays.faces.At(f, 2)));
        (mayMark ? markable : *fixed).AddTriangle(a, b, c);
    }
    return {std::move(mesh), std::move(units)};
}

FirstVertexIndex::FirstVertexIndex(const std::vector<std::int32_t>& units) {
    m_first.reserve(units.size() / 3);
    for (std::size_t v = 0; 3 * v + 2 < units.size(); ++v)
        m_first.try_emplace({units[3 * v], units[3 * v + 1], units[3 * v + 2]}, v);
}

std::optional<std::size_t> FirstVertexIndex::Find(const Position& position) const {
    const auto found = m_first.find(position);
    if (found == m_first.end())
        return std::nullopt;
    return found->second;
}

std::size_t FirstVertexIndex::PositionHash::operator()(const Position& p) const {
    std::uint64_t h = static_cast<std::uint32_t>(p[0]);
    h = h * 0x9E3779B97F4A7C15ull ^ static_cast<std::uint32_t>(p[1]);
    h = h * 0x9E3779B97F4A7C15ull ^ static_cast<std::uint32_t>(p[2]);
    return static_cast<std::size_t>(h ^ (h >> 29));
}

#define VELPICK_BUILD_ARRAY_MESH(Coordinate, Index) \
    template ArrayMesh BuildArrayMesh(const MeshArrays<Coordinate, Index>&);
#define VELPICK_BUILD_ARRAY_MESH_FOR_INDICES(Coordinate) \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::int8_t)    \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::int16_t)   \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::int32_t)   \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::int64_t)   \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::uint8_t)   \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::uint16_t)  \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::uint32_t)  \
    VELPICK_BUILD_ARRAY_MESH(Coordinate, std::uint64_t)
VELPICK_BUILD_ARRAY_MESH_FOR_INDICES(float)
VELPICK_BUILD_ARRAY_MESH_FOR_INDICES(double)

}  // namespace velpick::python
