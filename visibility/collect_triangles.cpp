#include <algorithm>

#include <velpick/host/plane_transform.h>
#include <velpick/host/stl_base.h>
#include <velpick/host/stl_iterators.h>
#include <velpick/host/stl_surface.h>
#include <velpick/host/stl_triangle.h>
#include <velpick/host/vector_math.h>
#include "visibility/detector_impl.h"
#include "visibility/piece_clipper.h"

using VelSDK::Math::matrix4x4;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;
using visibility::Piece;

namespace {

// Carries a plane through `inverse`. A zero normal has no foot point: the plane keeps
// everything instead (the origin stands in for the foot point), as the detector always did.
MMPlaneEq<double> CarryPlane(const MMPlaneEq<double>& plane, const MMTransformMatrix& inverse) {
    if (plane.a * plane.a + plane.b * plane.b + plane.c * plane.c == 0.0) {
        point3d foot, normal;
        inverse.Transform(foot, point3d{0.0, 0.0, 0.0}, false);
        inverse.Transform(normal, point3d{0.0, 0.0, 0.0}, true);
        return {normal.x, normal.y, normal.z,
                -(normal.x * foot.x + normal.y * foot.y + normal.z * foot.z)};
    }
    return VelSDK::Math::TransformPlane(plane, inverse);
}

// The affine product in the row-vector layout of matrix4x4, no division by w.
point3d ToScreen(const matrix4x4<double>& m, const point3d& p) {
    return {m.m[0][0] * p.x + m.m[1][0] * p.y + m.m[2][0] * p.z + m.m[3][0],
            m.m[0][1] * p.x + m.m[1][1] * p.y + m.m[2][1] * p.z + m.m[3][1],
            m.m[0][2] * p.x + m.m[1][2] * p.y + m.m[2][2] * p.z + m.m[3][2]};
}

point3d ModelCorner(const MStlTriangle& triangle, int corner) {
    const MStlPoint& p = *triangle.GetPoint(corner);
    return {double(p[0]), double(p[1]), double(p[2])};
}

// Disjoint only when separated; boxes that merely touch overlap.
bool BoxesOverlap(const Piece& piece, const point2d& boxMin, const point2d& boxMax) {
    const auto [minX, maxX] = std::minmax({piece.p[0].x, piece.p[1].x, piece.p[2].x});
    const auto [minY, maxY] = std::minmax({piece.p[0].y, piece.p[1].y, piece.p[2].y});
    return !(maxX < boxMin.x || minX > boxMax.x || maxY < boxMin.y || minY > boxMax.y);
}

// Seen from behind: the screen corners turn counter-clockwise in a y-up frame.
bool IsFlipped(const Piece& piece) {
    const point3d &a = piece.p[0], &b = piece.p[1], &c = piece.p[2];
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x) > 0.0;
}

}  // namespace

void MStlBaseOperatorVisibilityDetector::Impl::_CollectTriangles() {
    triangles.clear();
    triangles.resize(stls.size());
    std::vector<MMPlaneEq<double>> modelPlanes;
    std::vector<Piece> pieces, scratch;
    for (std::size_t mesh = 0; mesh < stls.size(); ++mesh) {
        const StlEntry& entry = stls[mesh];
        std::vector<Triangle>& out = triangles[mesh];
        out.reserve(entry.stl->GetNumberOfTriangles());

        MMTransformMatrix inverse = entry.planeTransform;
        inverse.Invert();
        modelPlanes.clear();
        for (const MMPlaneEq<double>& plane : clippingPlanes)
            modelPlanes.push_back(CarryPlane(plane, inverse));

        for (auto surface = MStlIteratorFeatureSurface::Begin(entry.stl);
             surface != MStlIteratorFeatureSurface::End(entry.stl); surface._GoToNextSubFeature()) {
            const bool markableSurface =
                entry.allSurfacesMarkable || markableSurfaces.count(&*surface) != 0;
            if (checkSurfaceVisibility && !surface->GetVisible())
                continue;
            for (auto it = MStlIteratorSurfaceTriangle::Begin(&*surface); it; ++it) {
                MStlTriangle& triangle = *it;
                if (triangle.IsInvisible())
                    continue;
                pieces.clear();
                pieces.push_back({{ModelCorner(triangle, 0), ModelCorner(triangle, 1),
                                   ModelCorner(triangle, 2)}});
                for (const MMPlaneEq<double>& plane : modelPlanes)
                    visibility::ClipPieces(pieces, plane, scratch);
                for (Piece& piece : pieces) {
                    for (point3d& corner : piece.p)
                        corner = ToScreen(entry.modelToScreen, corner);
                    if (!BoxesOverlap(piece, pathBoxMin, pathBoxMax))
                        continue;
                    const bool markable =
                        markableSurface && (markFlippedTriangles || !IsFlipped(piece));
                    out.push_back(
                        {piece.p[0], piece.p[1], piece.p[2], &triangle, markable, entry.marker});
                }
            }
        }
    }
}
