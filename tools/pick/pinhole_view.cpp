#include "pinhole_view.h"

#include <algorithm>
#include <cmath>

#include <velpick/host/stl_point.h>

namespace velpick {

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace {

// The near distance when nothing lies ahead of the eye: any positive distance cuts away
// vertices that sit on the eye itself, and there is nothing else to cut.
constexpr double kNearWithNothingAhead = 1.0;

}  // namespace

SelectionRegion RegionOnScreen(const SelectionRegion& region, const View& view) {
    const PinholeCamera* pinhole =
        view.camera ? std::get_if<PinholeCamera>(&*view.camera) : nullptr;
    if (!pinhole)
        return region;
    SelectionRegion screen = region;
    for (point2d& p : screen.points)
        p = {p.x + 0.5, pinhole->imageHeight - (p.y + 0.5)};
    return screen;
}

void PlacedBounds::Add(const MStlBase& mesh, const MMTransformMatrix& placement) {
    for (const MStlPoint& vertex : mesh.Vertices()) {
        const point3d p =
            placement.TransformPoint({double(vertex[0]), double(vertex[1]), double(vertex[2])});
        m_min = {std::min(m_min.x, p.x), std::min(m_min.y, p.y), std::min(m_min.z, p.z)};
        m_max = {std::max(m_max.x, p.x), std::max(m_max.y, p.y), std::max(m_max.z, p.z)};
    }
}

double PlacedBounds::FarthestCornerDistance(const MMTransformMatrix& toEye) const {
    if (!(m_min.x <= m_max.x))
        return 0.0;
    double farthest = 0.0;
    for (int corner = 0; corner < 8; ++corner) {
        const point3d p{corner & 1 ? m_max.x : m_min.x, corner & 2 ? m_max.y : m_min.y,
                        corner & 4 ? m_max.z : m_min.z};
        const point3d e = toEye.TransformPoint(p);
        farthest = std::max(farthest, std::hypot(e.x, e.y, e.z));
    }
    return farthest;
}

double DefaultNearDistance(double farthestCornerDistance) {
    const double nearDistance = kDefaultNearShare * farthestCornerDistance;
    return nearDistance > 0.0 && std::isfinite(nearDistance) ? nearDistance : kNearWithNothingAhead;
}

}  // namespace velpick
