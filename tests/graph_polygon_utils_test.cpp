#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <vector>

#include <velpick/host/line2d.h>
#include <velpick/mark_graph_polygon_utils.h>
#include "support/graph_builders.h"

namespace {

using namespace MarkGraphPolygonUtils;
using VelSDK::Math::point2d;
using Polygon = std::vector<point2d>;

TEST(PointInsideConvexPolygon, BorderBelongsToCounterClockwisePolygonsOnly) {
    const Polygon ccw = {{0, 0}, {1, 0}, {1, 1}, {0, 1}}, cw(ccw.rbegin(), ccw.rend());
    for (const point2d p : {point2d{1, 0.5}, {0.5, 0}, {0, 0}, {0.5, 0.5}, {1.5, 0.5}}) {
        EXPECT_EQ(PointInsideConvexPolygon2D(ccw, p), p.x <= 1) << p.x << "," << p.y;
        EXPECT_EQ(PointInsideConvexPolygon2D(cw, p), p.x == 0.5 && p.y == 0.5) << p.x << "," << p.y;
    }
    EXPECT_TRUE(PointInsideConvexPolygon2D({}, {1e300, -7}));
    for (const double scale : {1e300, 1e-300}) {  // no overflow or underflow
        const Polygon triangle = {{0, 0}, {scale, 0}, {0, scale}};
        EXPECT_TRUE(PointInsideConvexPolygon2D(triangle, {0.25 * scale, 0.25 * scale}));
        EXPECT_FALSE(PointInsideConvexPolygon2D(triangle, {0.75 * scale, 0.75 * scale}));
    }
}

// The shortcut for far segments must agree with asking the host about every side, on the
// box's corner and edges exactly and within a tolerance; a point segment has no tolerance.
TEST(LineSegmentIntoBox, AgreesWithTheHostOnEverySide) {
    const point2d lo{0, 0}, hi{40, 30}, corners[4] = {lo, {lo.x, hi.y}, hi, {hi.x, lo.y}};
    std::mt19937 random(3);
    std::uniform_real_distribution<double> coordinate(-20, 60);
    for (int i = 0; i < 20000; ++i) {
        std::array<point2d, 2> s;
        for (point2d& p : s)
            p = i % 2 ? point2d{std::round(coordinate(random)), std::round(coordinate(random))}
                      : point2d{coordinate(random), coordinate(random)};
        const double tolerance = std::round(coordinate(random)) / 4;
        bool expected = false;
        for (const point2d& p : s)
            expected = expected || (lo.x <= p.x && p.x <= hi.x && lo.y <= p.y && p.y <= hi.y);
        for (int k = 0; k < 4 && !expected && s[0] != s[1]; ++k) {
            point2d meeting;
            expected = MMLine2D(corners[k], corners[(k + 1) % 4])
                           .GetIntersectionSegmentSegment(meeting, MMLine2D(s[0], s[1]), tolerance);
        }
        EXPECT_EQ(LineSegmentIntoBox2d(s, lo, hi, tolerance), expected) << i;
    }
    EXPECT_FALSE(LineSegmentIntoBox2d({point2d{41, 2}, point2d{41, 2}}, lo, hi, 100));
}

// The bar of radius half the thickness (unset and negative thicknesses count as 5000) around
// the projected edge, clockwise and not closed; with a radius per vertex, through the transform.
TEST(EdgeOutline, ThicknessRadiiAndHullOrientation) {
    graphs::GraphMesh mesh;
    const MStlGraphEdge& along = mesh.edge({0, 0, 0}, {100000, 0, 0});
    mesh.setThickness(along, 0, -7);
    const auto& info = *MStlBaseElementInfoStlDependency::GetDependency(&mesh.stl, false);
    EXPECT_EQ(GetOutlineOfProjectedEdgeWithThickness(along, info, MMTransformMatrix()),
              (Polygon{{0, -2500}, {0, 2500}, {100000, 2500}, {100000, -2500}}));
    // Seen along z the bar shows the square of half-diagonal 200 at vertex 1, scaled by 0.5
    // and moved.
    const MStlGraphEdge& up = mesh.edge({0, 0, 0}, {0, 0, 1000});
    mesh.setThickness(up, 40, 400);
    MMTransformMatrix transform, shift;
    transform.MakeScale1D(0.5);
    shift.MakeTranslation({10, 20, 30});
    transform.PreMultiply(shift);
    EXPECT_EQ(GetOutlineOfProjectedEdgeWithThickness(up, &info, transform),
              (Polygon{{-90, 20}, {10, 120}, {110, 20}, {10, -80}}));
}

}  // namespace
