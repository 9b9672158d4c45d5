#include "polygon_soup.h"

#include <cmath>
#include <string>

#include "internal_units.h"

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

void addTriangle(MStlSurface& surface, const std::int32_t* units, std::uint32_t a, std::uint32_t b,
                 std::uint32_t c) {
    const std::int32_t *p = units + 3 * std::size_t{a}, *q = units + 3 * std::size_t{b},
                       *r = units + 3 * std::size_t{c};
    surface.AddTriangle(p[0], p[1], p[2], q[0], q[1], q[2], r[0], r[1], r[2]);
}

}  // namespace

std::unique_ptr<MStlBase> BuildMesh(const PolygonSoup& soup) {
    if (soup.FaceCount() == 0)
        throw ImportFailure("the file holds no faces");
    const std::vector<std::int32_t> units = toInternalUnits(soup.coordinates);
    for (std::size_t face = 0; face < soup.FaceCount(); ++face)
        checkFace(soup, face);

    auto mesh = std::make_unique<MStlBase>();
    std::vector<MStlSurface*> surfaces;
    for (std::size_t s = 0; s < soup.surfaceCount; ++s)
        surfaces.push_back(mesh->AddSurface(nullptr));
    for (std::size_t face = 0; face < soup.FaceCount(); ++face) {
        MStlSurface& surface = *surfaces[soup.faceSurfaces.empty() ? 0 : soup.faceSurfaces[face]];
        const std::uint32_t* corner = soup.corners.data() + soup.faceStarts[face];
        const std::uint32_t count = soup.faceStarts[face + 1] - soup.faceStarts[face];
        // Fan from the first corner: (v0, v1, v2), (v0, v2, v3), ...
        for (std::uint32_t k = 1; k + 1 < count; ++k)
            addTriangle(surface, units.data(), corner[0], corner[k], corner[k + 1]);
    }
    return mesh;
}

}  // namespace velpick::detail
