#include "polygon_soup.h"

#include <cstdint>
#include <string>
#include <vector>

#include "mesh_builder.h"

namespace velpick::detail {
namespace {

void checkFace(const PolygonSoup& soup, std::size_t face) {
    const std::uint32_t begin = soup.faceStarts[face], end = soup.faceStarts[face + 1];
    if (end - begin < 3)
        throw ImportFailure("face " + std::to_string(face) + " has " + std::to_string(end - begin) +
                            " vertices; at least 3 are needed");
    for (std::uint32_t c = begin; c < end; ++c)
        CheckCorner(face, soup.corners[c], soup.VertexCount());
}

// The soup's faces fanned from their first corners: (v0, v1, v2), (v0, v2, v3), ... A soup of
// triangles alone is read as it lies; the fans of other soups are listed first.
class FannedTriangles {
  public:
    explicit FannedTriangles(const PolygonSoup& soup)
        : m_soup(soup), m_allTriangles(soup.corners.size() == 3 * soup.FaceCount()) {
        for (std::size_t face = 0; !m_allTriangles && face < soup.FaceCount(); ++face) {
            const std::uint32_t first = soup.faceStarts[face];
            for (std::uint32_t k = first + 1; k + 1 < soup.faceStarts[face + 1]; ++k) {
                m_fans.push_back({first, k});
                m_faces.push_back(static_cast<std::uint32_t>(face));
            }
        }
    }
    std::size_t Count() const { return m_allTriangles ? m_soup.FaceCount() : m_fans.size(); }
    std::uint32_t Corner(std::size_t t, int k) const {
        if (m_allTriangles)
            return m_soup.corners[3 * t + static_cast<std::size_t>(k)];
        const Fan& fan = m_fans[t];
        return m_soup.corners[k == 0 ? fan.first : fan.second + static_cast<std::uint32_t>(k - 1)];
    }
    std::uint32_t Surface(std::size_t t) const {
        if (m_soup.faceSurfaces.empty())
            return 0;
        return m_soup.faceSurfaces[m_allTriangles ? t : m_faces[t]];
    }

  private:
    struct Fan {
        std::uint32_t first, second;  // corner positions of the face's first and k-th corner
    };
    const PolygonSoup& m_soup;
    // Every face has at least three corners (checked before), so as many corners as three per
    // face means every face is a triangle.
    const bool m_allTriangles;
    std::vector<Fan> m_fans;
    std::vector<std::uint32_t> m_faces;
};

}  // namespace

std::unique_ptr<MStlBase> BuildMesh(const PolygonSoup& soup, double unitsPerModelUnit) {
    if (soup.FaceCount() == 0)
        throw ImportFailure("the file holds no faces");
    const std::vector<std::int32_t> units = VerticesInUnits(
        soup.VertexCount(), [&](std::size_t v, int axis) { return soup.coordinates[3 * v + axis]; },
        unitsPerModelUnit);
    for (std::size_t face = 0; face < soup.FaceCount(); ++face)
        checkFace(soup, face);
    return BuildMeshInFirstUseOrder(units.data(), soup.VertexCount(), soup.surfaceCount,
                                    FannedTriangles(soup));
}

}  // namespace velpick::detail
