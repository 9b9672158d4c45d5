#include "polygon_soup.h"

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include <velpick/host/internal_units.h>

namespace velpick::detail {
namespace {

constexpr double kInt32Min = -2147483648.0;
constexpr double kInt32Max = 2147483647.0;
const char* const kAxisNames[3] = {"x", "y", "z"};

// Every coordinate in internal units, rounded half away from zero.
std::vector<std::int32_t> toInternalUnits(const std::vector<double>& coordinates) {
    const double unitsPerModelUnit = VelSDK::Common::MInternalUnits::Get();
    std::vector<std::int32_t> units(coordinates.size());
    for (std::size_t i = 0; i < coordinates.size(); ++i) {
        const double rounded = std::round(coordinates[i] * unitsPerModelUnit);
        // Written so that NaN fails too.
        if (!(rounded >= kInt32Min && rounded <= kInt32Max))
            throw ImportFailure("vertex " + std::to_string(i / 3) + ": coordinate " +
                                kAxisNames[i % 3] + " = " + std::to_string(coordinates[i]) +
                                " is out of range in internal units");
        units[i] = static_cast<std::int32_t>(rounded);
    }
    return units;
}

void checkFace(const PolygonSoup& soup, std::size_t face) {
    const std::uint32_t begin = soup.faceStarts[face], end = soup.faceStarts[face + 1];
    if (end - begin < 3)
        throw ImportFailure("face " + std::to_string(face) + " has " + std::to_string(end - begin) +
                            " vertices; at least 3 are needed");
    for (std::uint32_t c = begin; c < end; ++c)
        if (soup.corners[c] >= soup.VertexCount())
            throw ImportFailure("face " + std::to_string(face) + " uses vertex " +
                                std::to_string(soup.corners[c]) + " but the file has " +
                                std::to_string(soup.VertexCount()) + " vertices");
}

// Hash of a vertex's integer coordinates for the merge table.
std::size_t coordinateHash(const std::int32_t* c) {
    const std::uint64_t h = static_cast<std::uint32_t>(c[0]) * 0x9E3779B97F4A7C15ull ^
                            static_cast<std::uint32_t>(c[1]) * 0xC2B2AE3D27D4EB4Full ^
                            static_cast<std::uint32_t>(c[2]) * 0x165667B19E3779F9ull;
    return static_cast<std::size_t>(h ^ (h >> 29));
}

constexpr std::uint32_t kNone = UINT32_MAX;

// For every file vertex, the first file vertex with the same integer coordinates: an
// open-addressing table over the file's vertices, at most half full.
std::vector<std::uint32_t> firstOfEqualVertices(const std::vector<std::int32_t>& units) {
    const std::size_t count = units.size() / 3;
    std::size_t capacity = 16;
    while (capacity < 2 * count)
        capacity *= 2;
    std::vector<std::uint32_t> table(capacity, kNone);
    std::vector<std::uint32_t> first(count);
    for (std::size_t v = 0; v < count; ++v) {
        const std::int32_t* c = units.data() + 3 * v;
        for (std::size_t s = coordinateHash(c) & (capacity - 1);; s = (s + 1) & (capacity - 1)) {
            if (table[s] == kNone) {
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

/// Mesh vertices made on first use, numbered in order of first appearance.
class VertexNumbering {
  public:
    VertexNumbering(MStlBase& mesh, const std::vector<std::int32_t>& units)
        : m_mesh(mesh),
          m_units(units),
          m_first(firstOfEqualVertices(units)),
          m_meshVertex(m_first.size(), kNone) {}

    const MStlPoint& Vertex(std::uint32_t fileVertex) {
        std::uint32_t& number = m_meshVertex[m_first[fileVertex]];
        if (number == kNone) {
            const std::int32_t* c = m_units.data() + 3 * std::size_t{m_first[fileVertex]};
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

std::unique_ptr<MStlBase> BuildMesh(const PolygonSoup& soup) {
    if (soup.FaceCount() == 0)
        throw ImportFailure("the file holds no faces");
    const std::vector<std::int32_t> units = toInternalUnits(soup.coordinates);
    for (std::size_t face = 0; face < soup.FaceCount(); ++face)
        checkFace(soup, face);

    std::size_t triangles = 0;
    for (std::size_t face = 0; face < soup.FaceCount(); ++face)
        triangles += soup.faceStarts[face + 1] - soup.faceStarts[face] - 2;

    auto mesh = std::make_unique<MStlBase>();
    mesh->Reserve(soup.VertexCount(), triangles);
    std::vector<MStlSurface*> surfaces;
    for (std::size_t s = 0; s < soup.surfaceCount; ++s)
        surfaces.push_back(mesh->AddSurface(nullptr));
    // Vertices are created in order of first appearance: faces in order, and within each
    // triangle its corners 0, 1, 2.
    VertexNumbering vertices(*mesh, units);
    for (std::size_t face = 0; face < soup.FaceCount(); ++face) {
        MStlSurface& surface = *surfaces[soup.faceSurfaces.empty() ? 0 : soup.faceSurfaces[face]];
        const std::uint32_t* corner = soup.corners.data() + soup.faceStarts[face];
        const std::uint32_t count = soup.faceStarts[face + 1] - soup.faceStarts[face];
        // Fan from the first corner: (v0, v1, v2), (v0, v2, v3), ...
        for (std::uint32_t k = 1; k + 1 < count; ++k) {
            const MStlPoint& a = vertices.Vertex(corner[0]);
            const MStlPoint& b = vertices.Vertex(corner[k]);
            const MStlPoint& c = vertices.Vertex(corner[k + 1]);
            surface.AddTriangle(a, b, c);
        }
    }
    return mesh;
}

}  // namespace velpick::detail
