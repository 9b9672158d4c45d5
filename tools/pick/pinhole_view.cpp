#include "pinhole_view.h"

#include <algorithm>
#include <cmath>

#include <velpick/host/stl_point.h>
#include "picker.h"

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

SelectionRegion PixelSafeRegionOnScreen(const SelectionRegion& region, const View& view,
                                        double pixelProportion) {
    const SelectionRegion screen = RegionOnScreen(region, view);
    const double radius = screen.brushRadius * pixelProportion;
    for (const point2d& q : screen.points) {
        if (std::abs(q.x * pixelProportion) + radius > kMaxPixelCoordinate ||
            std::abs(q.y * pixelProportion) + radius > kMaxPixelCoordinate)
            throw PickError("region",
                            "beyond the 32-bit pixel range at this pixel_proportion once moved "
                            "from image to screen coordinates");
    }
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

void PlacedBounds::Add(const PlacedBounds& other) {
    m_min = {std::min(m_min.x, other.m_min.x), std::min(m_min.y, other.m_min.y),
             std::min(m_min.z, other.m_min.z)};
    m_max = {std::max(m_max.x, other.m_max.x), std::max(m_max.y, other.m_max.y),
             std::max(m_max.z, other.m_max.z)};
}

const PlacedBounds& PlacedBoundsCache::Get(const MStlBase& mesh,
                                           const MMTransformMatrix& placement) {
    std::call_once(m_found, [&] { m_bounds.Add(mesh, placement); });
    return m_bounds;
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

AU_MarkOperations::PolygonMarking::PerspectiveProjection OperatorProjection(
    const ViewProjection& projection) {
    return {projection.fx, projection.fy, projection.cx, projection.cy, projection.nearDistance};
}

}  // namespace velpick
