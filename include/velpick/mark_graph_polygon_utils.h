#pragma once

#include <array>
#include <vector>

#include <velpick/host/point.h>
#include <velpick/host/stl_graph.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/pixel_grid.h>

class MStlBaseElementInfo;

/// 2D geometry for marking feature-graph edges under a screen polygon. Stateless.
namespace MarkGraphPolygonUtils {

/// Whether `point` lies in the convex `polygon` (closed implicitly). Every edge is examined:
/// the point is inside when it lies left of or on every edge, or strictly right of every edge.
/// So the border belongs to a counter-clockwise polygon (in a y-up frame) and not to a
/// clockwise one. An empty polygon contains every point. Convexity is assumed, not checked.
bool PointInsideConvexPolygon2D(const std::vector<VelSDK::Math::point2d>& polygon,
                                const VelSDK::Math::point2d& point);

/// Whether some part of the segment lies in the closed box boxMin..boxMax: an endpoint inside
/// (border included) is enough; a segment of two equal points outside is not; otherwise the
/// host segment intersection (MMLine2D::GetIntersectionSegmentSegment, with `tolerance` as
/// given) is asked against the sides (minX,minY)→(minX,maxY)→(maxX,maxY)→(maxX,minY)→back.
bool LineSegmentIntoBox2d(const std::array<VelSDK::Math::point2d, 2>& segment,
                          const VelSDK::Math::point2d& boxMin, const VelSDK::Math::point2d& boxMax,
                          double tolerance);

/// Radius used for a thickness that is zero or negative in edge outlines: half of 5000
/// internal units.
constexpr double kDefaultOutlineThickness = 5000.0;

/// The convex outline, in the x, y of `transform`, of `edge` drawn as a bar: a square
/// cross-section of half-diagonal r at each vertex (r = thickness/2 from `info`, where a
/// thickness ≤ DBL_EPSILON counts as kDefaultOutlineThickness), the eight corners mapped as
/// positions and their convex hull taken. The hull's vertices are returned clockwise (y up)
/// without repeating the first. A degenerate bar gives the hull's degenerate ring as it is: a
/// bar of radius 0 (or seen end-on) gives the three points A, B, A; a zero-length edge gives
/// non-finite points.
std::vector<VelSDK::Math::point2d> GetOutlineOfProjectedEdgeWithThickness(
    const VelMesh::StlBase::Handle::GraphEdge& edge, const MStlBaseElementInfo& info,
    const MMTransformMatrix& transform);
/// The same with the element information given by pointer: null looks it up through the
/// edge's graph and mesh, and a mesh without it gives radius 0 at both ends (the outline then
/// only joins the two projected vertices).
std::vector<VelSDK::Math::point2d> GetOutlineOfProjectedEdgeWithThickness(
    const VelMesh::StlBase::Handle::GraphEdge& edge, const MStlBaseElementInfo* info,
    const MMTransformMatrix& transform);

/// Whether the outline touches a set pixel of `grid`: an outline of more than two points is
/// tested as a polygon (PixelGrid::Intersect(polygon)), one of two points as a segment. An
/// outline of fewer than two points touches nothing (false).
bool EdgeIntersectArea(AU_MarkOperations::PolygonMarking::PixelGrid& grid,
                       const std::vector<VelSDK::Math::point2d>& outline);

}  // namespace MarkGraphPolygonUtils
