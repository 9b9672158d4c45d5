#pragma once

#include <array>
#include <vector>

#include <velpick/host/point.h>
#include <velpick/host/stl_graph.h>
#include <velpick/host/transform_matrix.h>
#include <velpick/pinhole_projection.h>
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

/// A graph edge seen through a pinhole: its ends in eye space (eye at the origin looking along
/// −z, see PerspectiveProjection) after the near cut, with their depths.
struct EyeSegment {
    VelSDK::Math::point3d ends[2];
    double depths[2];
};

/// The part of the edge from `a` to `b` (eye space) at depth ≥ `nearDistance`: false when both
/// ends lie nearer. An end nearer than the plane moves along the edge onto it, its depth then
/// exactly `nearDistance`.
bool CutAtNearPlane(const VelSDK::Math::point3d& a, const VelSDK::Math::point3d& b,
                    double nearDistance, EyeSegment& segment);

/// An eye-space point on the screen of `camera`: (cx + fx·x/depth, cy + fy·y/depth).
VelSDK::Math::point2d ProjectEyePoint(
    const AU_MarkOperations::PolygonMarking::PerspectiveProjection& camera,
    const VelSDK::Math::point3d& eye, double depth);

/// The outline of a near-cut edge drawn as a bar through a pinhole: each end's half-width is
/// the bar's radius r projected at that end's depth, r·f/depth (r = thickness/2 from `info` as
/// for GetOutlineOfProjectedEdgeWithThickness, so a thickness ≤ DBL_EPSILON counts as
/// kDefaultOutlineThickness and a mesh without element info gives r = 0; f the focal length,
/// fx across and fy along the screen's y). Built in the image plane at unit distance: the two
/// ends A, B, and with t the unit direction from A to B ((1, 0) for an edge seen end-on) and n
/// its normal, the points A ± ρ0·n, A − ρ0·t, B ± ρ1·n, B + ρ1·t (ρ = r/depth), mapped by the
/// camera; their convex hull, clockwise (y up) as above.
std::vector<VelSDK::Math::point2d> GetOutlineOfPerspectiveEdgeWithThickness(
    const VelMesh::StlBase::Handle::GraphEdge& edge, const MStlBaseElementInfo* info,
    const EyeSegment& segment,
    const AU_MarkOperations::PolygonMarking::PerspectiveProjection& camera);

/// Whether the outline touches a set pixel of `grid`: an outline of more than two points is
/// tested as a polygon (PixelGrid::Intersect(polygon)), one of two points as a segment. An
/// outline of fewer than two points touches nothing (false).
bool EdgeIntersectArea(AU_MarkOperations::PolygonMarking::PixelGrid& grid,
                       const std::vector<VelSDK::Math::point2d>& outline);

}  // namespace MarkGraphPolygonUtils
