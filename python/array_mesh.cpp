#include "array_mesh.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "internal_units.h"
#include "stl_surface.h"

namespace velpick::python {
namespace {

constexpr double kInt32Min = -2147483648.0;
constexpr double kInt32Max = 2147483647.0;
const char* const kAxisNames[3] = {"x", "y", "z"};

// The importer's rule: scale, round half away from zero, refuse what leaves 32 bits.
template <class Coordinate>
std::vector<std::int32_t> ToInternalUnits(const StridedArray<Coordinate>& vertices) {
    const double unitsPerModelUnit = VelSDK::Common::MInternalUnits::Get();
    std::vector<std::int32_t> units(3 * vertices.rows);
    for (std::size_t v = 0; v < vertices.rows; ++v) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double coordinate = static_cast<double>(vertices.At(v, axis));
            const double rounded = std::round(coordinate * unitsPerModelUnit);
            // Written so that NaN fails too.
            if (!(rounded >= kInt32Min && rounded <= kInt32Max))
                throw ArrayMeshError("vertices: vertex " + std::to_string(v) + ": coordinate " +
                                     kAxisNames[axis] + " = " + std::to_string(coordinate) +
                                     " is out of range in internal units");
            units[3 * v + axis] = static_cast<std::int32_t>(rounded);
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

template <class Index>
void AddFace(MStlSurface& surface, const std::vector<std::int32_t>& units,
             const StridedArray<Index>& faces, std::size_t f) {
    const std::int32_t* p = units.data() + 3 * static_cast<std::size_t>(faces.At(f, 0));
    const std::int32_t* q = units.data() + 3 * static_cast<std::size_t>(faces.At(f, 1));
    const std::int32_t* r = units.data() + 3 * static_cast<std::size_t>(faces.At(f, 2));
    surface.AddTriangle(p[0], p[1], p[2], q[0], q[1], q[2], r[0], r[1], r[2]);
}

}  // namespace

template <class Coordinate, class Index>
ArrayMesh BuildArrayMesh(const MeshArrays<Coordinate, Index>& arrays) {
    std::vector<std::int32_t> units = ToInternalUnits(arrays.vertices);
    CheckFaces(arrays.faces, arrays.vertices.rows);

    auto mesh = std::make_unique<MStlBase>();
    MStlSurface& markable = *mesh->AddSurface(nullptr);
    MStlSurface* fixed = arrays.markable ? mesh->AddSurface(nullptr) : &markable;
    for (std::size_t f = 0; f < arrays.faces.rows; ++f) {
        const bool mayMark = !arrays.markable || arrays.markable->At(f) != 0;
        AddFace(mayMark ? markable : *fixed, units, arrays.faces, f);
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
