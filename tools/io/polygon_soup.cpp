#include "polygon_soup.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <velpick/host/internal_units.h>
#include "vertex_merge.h"

namespace velpick::detail {
namespace {

const char* const kAxisNames[3] = {"x", "y", "z"};

// Every coordinate in internal units, rounded half away from zero.
std::vector<std::int32_t> toInternalUnits(const std::vector<double>& coordinates) {
    const double unitsPerModelUnit = VelSDK::Common::MInternalUnits::Get();
    std::vector<std::int32_t> units(coordinates.size());
    for (std::size_t i = 0; i < coordinates.size(); ++i) {
        const std::optional<std::int32_t> unit = ToInternalUnits(coordinates[i], unitsPerModelUnit);
        if (!unit)
            throw ImportFailure("vertex " + std::to_string(i / 3) + ": coordinate " +
                                kAxisNames[i % 3] + " = " + std::to_string(coordinates[i]) +
                                " is out of range in internal units");
        units[i] = *unit;
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
    // Vertices are created in order of first appearance: faces in order, and within each
    // triangle its corners 0, 1, 2. Consecutive faces of one surface go in as one batch.
    MergedVertices vertices(*mesh, units);
    mesh->Reserve(vertices.PositionCount(), triangles);
    std::vector<MStlSurface*> surfaces;
    for (std::size_t s = 0; s < soup.surfaceCount; ++s)
        surfaces.push_back(mesh->AddSurface(nullptr));
    std::vector<std::uint32_t> batch;  // vertex numbers, three per triangle
    batch.reserve(3 * triangles);
    std::size_t batchSurface = 0;
    const auto addBatch = [&] {
        surfaces[batchSurface]->AddTriangles(batch.data(), batch.size() / 3);
        batch.clear();
    };
    for (std::size_t face = 0; face < soup.FaceCount(); ++face) {
        const std::size_t surface = soup.faceSurfaces.empty() ? 0 : soup.faceSurfaces[face];
        if (surface != batchSurface) {
            addBatch();
            batchSurface = surface;
        }
        const std::uint32_t* corner = soup.corners.data() + soup.faceStarts[face];
        const std::uint32_t count = soup.faceStarts[face + 1] - soup.faceStarts[face];
        // Fan from the first corner: (v0, v1, v2), (v0, v2, v3), ...
        for (std::uint32_t k = 1; k + 1 < count; ++k) {
            batch.push_back(vertices.NumberOf(corner[0]));
            batch.push_back(vertices.NumberOf(corner[k]));
            batch.push_back(vertices.NumberOf(corner[k + 1]));
        }
    }
    addBatch();
    return mesh;
}

}  // namespace velpick::detail
