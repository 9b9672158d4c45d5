#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <unordered_map>

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

constexpr std::uint32_t kNoVertex = std::numeric_limits<std::uint32_t>::max();

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

// The near plane depth − near ≥ 0 in the mesh's model space. Eye-space depth is −z of
// modelToScreen's product, so the plane is read off its z column without an inverse.
MMPlaneEq<double> NearPlane(const matrix4x4<double>& m, double nearDistance) {
    return {-m.m[0][2], -m.m[1][2], -m.m[2][2], -m.m[3][2] - nearDistance};
}

}  // namespace

point3d MStlBaseOperatorVisibilityDetector::Impl::_ToScreen(const StlEntry& entry,
                                                            const point3d& p) const {
    const point3d mapped = ToScreen(entry.modelToScreen, p);
    if (!perspective)
        return mapped;
    // A corner the near plane keeps may round a hair nearer than it: it is taken at the plane.
    const double depth = std::max(-mapped.z, projection.nearDistance);
    return {projection.cx + projection.fx * mapped.x / depth,
            projection.cy + projection.fy * mapped.y / depth, projection.nearDistance / depth};
}

std::uint32_t MStlBaseOperatorVisibilityDetector::Impl::_AddVertex(const point3d& p) {
    if (vertices.size() >= kNoVertex)
        throw std::length_error("visibility sweep: more piece corners than it numbers");
    vertices.push_back(p);
    return static_cast<std::uint32_t>(vertices.size() - 1);
}

std::uint32_t MStlBaseOperatorVisibilityDetector::Impl::_SharedVertex(const StlEntry& entry,
                                                                      std::uint32_t point) {
    std::uint32_t& index = vertexOfPoint[point];
    if (index == kNoVertex) {
        const MStlPoint& p = entry.stl->GetPoint(point);
        index = _AddVertex(_ToScreen(entry, {double(p[0]), double(p[1]), double(p[2])}));
    }
    return index;
}

// A triangle the planes keep whole is one piece equal to it, bit for bit: its corners are the
// mesh's points, mapped once for all the triangles that share them.
void MStlBaseOperatorVisibilityDetector::Impl::_CollectTriangle(
    const StlEntry& entry, const std::vector<MMPlaneEq<double>>& modelPlanes,
    MStlTriangle& triangle, bool markableSurface) {
    const Piece whole{
        {ModelCorner(triangle, 0), ModelCorner(triangle, 1), ModelCorner(triangle, 2)}};
    pieces.clear();
    pieces.push_back(whole);
    for (const MMPlaneEq<double>& plane : modelPlanes)
        visibility::ClipPieces(pieces, plane, clipScratch);
    const bool kept = pieces.size() == 1 && std::memcmp(&pieces[0], &whole, sizeof whole) == 0;
    for (Piece& piece : pieces) {
        std::uint32_t corners[3];
        if (kept) {
            for (int k = 0; k < 3; ++k) {
                corners[k] = _SharedVertex(entry, triangle.GetPointIndex(k));
                piece.p[k] = vertices[corners[k]];
            }
        } else {
            for (point3d& corner : piece.p)
                corner = _ToScreen(entry, corner);
        }
        if (!BoxesOverlap(piece, pathBoxMin, pathBoxMax))
            continue;
        if (!kept)
            for (int k = 0; k < 3; ++k)
                corners[k] = _AddVertex(piece.p[k]);
        const bool markable = markableSurface && (markFlippedTriangles || !IsFlipped(piece));
        triangles.push_back({{corners[0], corners[1], corners[2]}, markable, &triangle});
    }
}

// A listed run visits its candidates surface by surface in the surface walk's order, and within
// a surface in ascending index, which is the order of the surface's own triangles: the pieces
// it keeps come in the order of the full run, so ties between them break alike.
template <class Visit>
void MStlBaseOperatorVisibilityDetector::Impl::_ForEachTriangle(const StlEntry& entry,
                                                                Visit&& visit) const {
    const auto surfaceVisible = [&](const MStlSurface& surface) {
        return !checkSurfaceVisibility || surface.GetVisible();
    };
    const auto surfaceMarkable = [&](const MStlSurface& surface) {
        return entry.allSurfacesMarkable || markableSurfaces.count(&surface) != 0;
    };
    if (!entry.listed) {
        for (auto surface = MStlIteratorFeatureSurface::Begin(entry.stl);
             surface != MStlIteratorFeatureSurface::End(entry.stl); surface._GoToNextSubFeature()) {
            if (!surfaceVisible(*surface))
                continue;
            const bool markable = surfaceMarkable(*surface);
            for (auto it = MStlIteratorSurfaceTriangle::Begin(&*surface); it; ++it)
                visit(*it, markable);
        }
        return;
    }
    std::unordered_map<const MStlSurface*, std::size_t> position;
    std::vector<const MStlSurface*> surfaces;
    for (auto surface = MStlIteratorFeatureSurface::Begin(entry.stl);
         surface != MStlIteratorFeatureSurface::End(entry.stl); surface._GoToNextSubFeature()) {
        position.emplace(&*surface, surfaces.size());
        surfaces.push_back(&*surface);
    }
    std::vector<std::vector<MStlTriangle*>> bySurface(surfaces.size());
    const MStlElementStore<MStlTriangle>& store = entry.stl->_Triangles();
    for (const std::uint32_t index : entry.candidates) {
        MStlTriangle& triangle = store[index];
        bySurface[position.at(triangle.GetSurface())].push_back(&triangle);
    }
    for (std::size_t k = 0; k < surfaces.size(); ++k) {
        if (bySurface[k].empty() || !surfaceVisible(*surfaces[k]))
            continue;
        const bool markable = surfaceMarkable(*surfaces[k]);
        for (MStlTriangle* triangle : bySurface[k])
            visit(*triangle, markable);
    }
}

void MStlBaseOperatorVisibilityDetector::Impl::_CollectTriangles() {
    triangles.clear();
    vertices.clear();
    meshFirstPiece.assign(1, 0);
    std::vector<MMPlaneEq<double>> modelPlanes;
    for (const StlEntry& entry : stls) {
        vertexOfPoint.assign(entry.stl->_Points().Size(), kNoVertex);
        MMTransformMatrix inverse = entry.planeTransform;
        inverse.Invert();
        modelPlanes.clear();
        // The near plane cuts first, so that nothing nearer than it reaches the other planes'
        // pieces or the projection.
        if (perspective)
            modelPlanes.push_back(NearPlane(entry.modelToScreen, projection.nearDistance));
        for (const MMPlaneEq<double>& plane : clippingPlanes)
            modelPlanes.push_back(CarryPlane(plane, inverse));

        _ForEachTriangle(entry, [&](MStlTriangle& triangle, bool markableSurface) {
            if (!triangle.IsInvisible())
                _CollectTriangle(entry, modelPlanes, triangle, markableSurface);
        });
        meshFirstPiece.push_back(triangles.size());
    }
    std::vector<std::uint32_t>().swap(vertexOfPoint);
    // The storage follows what the region box kept, not what was reserved growing.
    triangles.shrink_to_fit();
    vertices.shrink_to_fit();
}
