#include <velpick/mark_graph_polygon_utils.h>

#include <algorithm>
#include <cfloat>
#include <cmath>

#include <boost/geometry/algorithms/convex_hull.hpp>
#include <boost/geometry/geometries/multi_point.hpp>
#include <boost/geometry/geometries/point_xy.hpp>
#include <boost/geometry/geometries/polygon.hpp>
#include <boost/geometry/strategies/strategies.hpp>

#include <velpick/host/element_info.h>
#include <velpick/host/line2d.h>
#include <velpick/host/stl_point.h>
#include <velpick/host/vector_math.h>
#include "graph_operators/edge_bar.h"

using VelSDK::Math::kMinLengthScale;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

namespace MarkGraphPolygonUtils {

namespace {

// Relative rounding allowance when a segment is rejected as far from a box without asking the
// host's segment intersection; far above the error of any double distance computation.
constexpr double kDistanceSlack = 1e-9;

// Scales v to unit length with the overflow-safe length m·√(1 + (s/m)²); a zero vector stays.
point2d Normalized(point2d v) {
    const double ax = std::fabs(v.x), ay = std::fabs(v.y);
    const double m = std::max(ax, ay), s = std::min(ax, ay);
    const double ratio = s / std::max(m, kMinLengthScale);
    const double length = m * std::sqrt(1.0 + ratio * ratio);
    if (length == 0.0)
        return v;
    return {v.x / length, v.y / length};
}

bool InClosedBox(const point2d& p, const point2d& boxMin, const point2d& boxMax) {
    return boxMin.x <= p.x && p.x <= boxMax.x && boxMin.y <= p.y && p.y <= boxMax.y;
}

// Whether the segment stays farther than `tolerance` from the box, by a margin that covers
// the rounding of any distance computation: then no side of the box can come within the
// tolerance either. NaN coordinates or tolerances never count as far.
bool FarFromBox(const std::array<point2d, 2>& segment, const point2d& boxMin, const point2d& boxMax,
                double tolerance) {
    const auto [xLow, xHigh] = std::minmax(segment[0].x, segment[1].x);
    const auto [yLow, yHigh] = std::minmax(segment[0].y, segment[1].y);
    const double gap = std::max(std::max(boxMin.x - xHigh, xLow - boxMax.x),
                                std::max(boxMin.y - yHigh, yLow - boxMax.y));
    const double magnitude = std::max({1.0, std::fabs(xLow), std::fabs(xHigh), std::fabs(yLow),
                                       std::fabs(yHigh), std::fabs(boxMin.x), std::fabs(boxMin.y),
                                       std::fabs(boxMax.x), std::fabs(boxMax.y)});
    // Segments that meet a side are accepted whatever the tolerance, so a negative one reaches
    // as far as zero.
    const double reach = std::max(tolerance, 0.0);
    return gap > reach + kDistanceSlack * magnitude;
}

const MStlBaseElementInfo* LookUpElementInfo(const MStlGraphEdge& edge) {
    return MStlBaseElementInfoStlDependency::GetDependency(edge.GetGraph()->GetStl(), false);
}

// Thicknesses up to DBL_EPSILON (zero and negative ones) mean "not set" for outlines.
double OutlineRadius(std::int32_t thickness) {
    double value = static_cast<double>(thickness);
    if (!(value > DBL_EPSILON))
        value = kDefaultOutlineThickness;
    return value * 0.5;
}

// The outline radii of the edge's two ends; (0, 0) for a mesh without element info. `info`
// null looks the mesh's element info up.
std::pair<double, double> OutlineRadii(const MStlGraphEdge& edge, const MStlBaseElementInfo* info) {
    if (!info)
        info = LookUpElementInfo(edge);
    if (!info)
        return {0.0, 0.0};
    const MStlGraphEdgeThickness& thickness = info->GetEdgeThickness(edge);
    return {OutlineRadius(thickness.first), OutlineRadius(thickness.second)};
}

using HullPoint = boost::geometry::model::d2::point_xy<double>;

// Boost's default polygon: clockwise and closed, so the ring repeats its first point last.
template <std::size_t N>
std::vector<point2d> ConvexHull(const std::array<point2d, N>& points) {
    boost::geometry::model::multi_point<HullPoint> input;
    input.reserve(points.size());
    for (const point2d& p : points)
        input.emplace_back(p.x, p.y);
    boost::geometry::model::polygon<HullPoint> hull;
    boost::geometry::convex_hull(input, hull);
    std::vector<point2d> outline;
    outline.reserve(hull.outer().size());
    for (const HullPoint& p : hull.outer())
        outline.push_back({p.x(), p.y()});
    for (const auto& inner : hull.inners())
        for (const HullPoint& p : inner)
            outline.push_back({p.x(), p.y()});
    if (!outline.empty())
        outline.pop_back();
    return outline;
}

}  // namespace

bool PointInsideConvexPolygon2D(const std::vector<point2d>& polygon, const point2d& point) {
    const std::size_t n = polygon.size();
    bool negative = false, nonNegative = false;
    for (std::size_t i = 0; i < n; ++i) {
        const point2d& from = polygon[i];
        const point2d& to = polygon[(i + 1) % n];
        const point2d u = Normalized({point.x - from.x, point.y - from.y});
        const point2d e = Normalized({to.x - from.x, to.y - from.y});
        const double cross = u.y * e.x - e.y * u.x;
        // A NaN cross product is not negative, so it counts with the left side.
        if (cross < 0.0)
            negative = true;
        else
            nonNegative = true;
    }
    return !negative || !nonNegative;
}

bool LineSegmentIntoBox2d(const std::array<point2d, 2>& segment, const point2d& boxMin,
                          const point2d& boxMax, double tolerance) {
    if (InClosedBox(segment[0], boxMin, boxMax) || InClosedBox(segment[1], boxMin, boxMax))
        return true;
    if (segment[0] == segment[1])
        return false;
    // Shortcut for the common far-away segment; the host would find no side within reach.
    if (FarFromBox(segment, boxMin, boxMax, tolerance))
        return false;
    const point2d corners[4] = {boxMin, {boxMin.x, boxMax.y}, boxMax, {boxMax.x, boxMin.y}};
    const MMLine2D line(segment[0], segment[1]);
    for (int i = 0; i < 4; ++i) {
        const MMLine2D side(corners[i], corners[(i + 1) % 4]);
        point2d meeting;
        if (side.GetIntersectionSegmentSegment(meeting, line, tolerance))
            return true;
    }
    return false;
}

std::vector<point2d> GetOutlineOfProjectedEdgeWithThickness(
    const VelMesh::StlBase::Handle::GraphEdge& edge, const MStlBaseElementInfo& info,
    const MMTransformMatrix& transform) {
    return GetOutlineOfProjectedEdgeWithThickness(edge, &info, transform);
}

std::vector<point2d> GetOutlineOfProjectedEdgeWithThickness(
    const VelMesh::StlBase::Handle::GraphEdge& edge, const MStlBaseElementInfo* info,
    const MMTransformMatrix& transform) {
    const auto [r0, r1] = OutlineRadii(edge, info);
    const auto corners = detail::EdgeBarCorners(detail::ToDouble(*edge.GetVertex(0)),
                                                detail::ToDouble(*edge.GetVertex(1)), r0, r1);
    std::array<point2d, 8> projected;
    for (std::size_t i = 0; i < corners.size(); ++i) {
        const point3d mapped = transform(corners[i], false);
        projected[i] = {mapped.x, mapped.y};
    }
    return ConvexHull(projected);
}

bool CutAtNearPlane(const point3d& a, const point3d& b, double nearDistance, EyeSegment& segment) {
    const double da = -a.z, db = -b.z;
    if (!(da >= nearDistance) && !(db >= nearDistance))
        return false;
    segment = {{a, b}, {da, db}};
    for (int end = 0; end < 2; ++end) {
        if (segment.depths[end] >= nearDistance)
            continue;
        // The other end is kept: move this one towards it onto the plane.
        const point3d &from = end == 0 ? a : b, &to = end == 0 ? b : a;
        const double dFrom = segment.depths[end], dTo = segment.depths[1 - end];
        const double s = (nearDistance - dFrom) / (dTo - dFrom);
        segment.ends[end] = {from.x + s * (to.x - from.x), from.y + s * (to.y - from.y),
                             -nearDistance};
        segment.depths[end] = nearDistance;
    }
    return true;
}

point2d ProjectEyePoint(const AU_MarkOperations::PolygonMarking::PerspectiveProjection& camera,
                        const point3d& eye, double depth) {
    return {camera.cx + camera.fx * eye.x / depth, camera.cy + camera.fy * eye.y / depth};
}

std::vector<point2d> GetOutlineOfPerspectiveEdgeWithThickness(
    const VelMesh::StlBase::Handle::GraphEdge& edge, const MStlBaseElementInfo* info,
    const EyeSegment& segment,
    const AU_MarkOperations::PolygonMarking::PerspectiveProjection& camera) {
    const auto [r0, r1] = OutlineRadii(edge, info);
    // The image plane at unit distance: positions x/depth, y/depth, radii r/depth.
    const point2d a = {segment.ends[0].x / segment.depths[0],
                       segment.ends[0].y / segment.depths[0]};
    const point2d b = {segment.ends[1].x / segment.depths[1],
                       segment.ends[1].y / segment.depths[1]};
    const double rho0 = r0 / segment.depths[0], rho1 = r1 / segment.depths[1];
    point2d t = Normalized({b.x - a.x, b.y - a.y});
    if (t.x == 0.0 && t.y == 0.0)
        t = {1.0, 0.0};
    const point2d n = {-t.y, t.x};
    const auto at = [](const point2d& p, double r, const point2d& d) {
        return point2d{p.x + r * d.x, p.y + r * d.y};
    };
    const std::array<point2d, 6> plane = {at(a, rho0, n), at(a, -rho0, n), at(a, -rho0, t),
                                          at(b, rho1, n), at(b, -rho1, n), at(b, rho1, t)};
    std::array<point2d, 6> projected;
    for (std::size_t i = 0; i < plane.size(); ++i)
        projected[i] = {camera.cx + camera.fx * plane[i].x, camera.cy + camera.fy * plane[i].y};
    return ConvexHull(projected);
}

bool EdgeIntersectArea(AU_MarkOperations::PolygonMarking::PixelGrid& grid,
                       const std::vector<point2d>& outline) {
    if (outline.size() > 2)
        return grid.Intersect(outline);
    if (outline.size() < 2)
        return false;
    return grid.Intersect(std::array<point2d, 2>{outline[0], outline[1]});
}

}  // namespace MarkGraphPolygonUtils
