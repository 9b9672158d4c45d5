#include "array_mesh.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <velpick/host/internal_units.h>
#include <velpick/host/stl_surface.h>

namespace velpick::python {
namespace {

constexpr double kInt32Min = -2147483648.0;
constexpr double kInt32Max = 2147483647.0;
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

std::size_t PositionHash(const std::int32_t* c) {
    const std::uint64_t h = static_cast<std::uint32_t>(c[0]) * 0x9E3779B97F4A7C15ull ^
                            static_cast<std::uint32_t>(c[1]) * 0xC2B2AE3D27D4EB4Full ^
                            static_cast<std::uint32_t>(c[2]) * 0x165667B19E3779F9ull;
    return static_cast<std::size_t>(h ^ (h >> 29));
}

// For every input vertex, the first input vertex at the same internal-unit position: an
// open-addressing table at most half full. Cheaper than asking the mesh for each corner.
std::vector<std::uint32_t> FirstOfEqualVertices(const std::vector<std::int32_t>& units) {
    const std::size_t count = units.size() / 3;
    std::size_t capacity = 16;
    while (capacity < 2 * count)
        capacity *= 2;
    std::vector<std::uint32_t> table(capacity, kNoVertex);
    std::vector<std::uint32_t> first(count);
    for (std::size_t v = 0; v < count; ++v) {
        const std::int32_t* c = units.data() + 3 * v;
        for (std::size_t s = PositionHash(c) & (capacity - 1);; s = (s + 1) & (capacity - 1)) {
            if (table[s] == kNoVertex) {
                table[s] = first[v] = static_cast<std::uint32_t>(v);
                break;
            }
            const std::int32_t* other = units.data() + 3 * std::size_t{table[s]};
            if (other[0] == c[0] && other[1] == c[1] && other[2] == c[2]) {
                first[v] = table[s];
                break;
            }
        }
    }
    return first;
}

// Mesh vertices made on first use, so that they are numbered in order of first appearance
// (faces in order, corners 0, 1, 2), as the importer numbers them.
class MeshVertices {
  public:
    MeshVertices(MStlBase& mesh, const std::vector<std::int32_t>& units)
        : m_mesh(mesh),
          m_units(units),
          m_first(FirstOfEqualVertices(units)),
          m_meshVertex(m_first.size(), kNoVertex) {}

    const MStlPoint& Of(std::size_t inputVertex) {
        std::uint32_t& number = m_meshVertex[m_first[inputVertex]];
        if (number == kNoVertex) {
            const std::int32_t* c = m_units.data() + 3 * std::size_t{m_first[inputVertex]};
            number = static_cast<std::uint32_t>(
                m_mesh.AddDistinctPoint(c[0], c[1], c[2])->GetMaskIndex());
        }
        return m_mesh.GetPoint(number);
    }

  private:
    MStlBase& m_mesh;
    const std::vector<std::int32_t>& m_units;
    std::vector<std::uint32_t> m_first;
    std::vector<std::uint32_t> m_meshVertex;
};

}  // namespace

template <class Coordinate, class Index>
ArrayMesh BuildArrayMesh(const MeshArrays<Coordinate, Index>& arrays) {
    std::vector<std::int32_t> units = ToInternalUnits(arrays.vertices);
    CheckFaces(arrays.faces, arrays.vertices.rows);

    auto mesh = std::make_unique<MStlBase>();
    mesh->Reserve(arrays.vertices.rows, arrays.faces.rows);
    MStlSurface& markable = *mesh->AddSurface(nullptr);
    MStlSurface* fixed = arrays.markable ? mesh->AddSurface(nullptr) : &markable;
    MeshVertices vertices(*mesh, units);
    for (std::size_t f = 0; f < arrays.faces.rows; ++f) {
        const bool mayMark = !arrays.markable || arrays.markable->At(f) != 0;
        const MStlPoint& a = vertices.Of(static_cast<std::size_t>(arrays.faces.At(f, 0)));
        const MStlPoint& b = vertices.Of(static_cast<std::size_t>(arrays.faces.At(f, 1)));
        const MStlPoint& c = vertices.Of(static_cast<std::size_t>(arrays.faces.At(f, 2)));
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
