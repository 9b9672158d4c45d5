#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include <velpick/host/line2d.h>
#include <velpick/mark_graph_polygon_utils.h>
#include <velpick/pixel_grid.h>
#include "support/graph_builders.h"

namespace {

using namespace MarkGraphPolygonUtils;
using VelSDK::Math::point2d;
using Polygon = std::vector<point2d>;
using PointSet = std::set<std::pair<double, double>>;

PointSet pointSet(const Polygon& polygon) {
    PointSet points;
    for (const point2d& p : polygon)
        points.insert({p.x, p.y});
    return points;
}

TEST(PointInsideConvexPolygon, BorderBelongsToCounterClockwisePolygonsOnly) {
    const Polygon ccw = {{0, 0}, {1, 0}, {1, 1}, {0, 1}}, cw(ccw.rbegin(), ccw.rend());
    for (const point2d border : {point2d{1, 0.5}, point2d{0.5, 0}, point2d{0, 0}}) {
        EXPECT_TRUE(PointInsideConvexPolygon2D(ccw, border));
        EXPECT_FALSE(PointInsideConvexPolygon2D(cw, border));
    }
    for (const Polygon* square : {&ccw, &cw}) {
        EXPECT_TRUE(PointInsideConvexPolygon2D(*square, {0.5, 0.5}));
        EXPECT_FALSE(PointInsideConvexPolygon2D(*square, {1.5, 0.5}));
    }
    EXPECT_TRUE(PointInsideConvexPolygon2D({}, {1e300, -7}));
    for (const double scale : {1e300, 1e-300}) {  // no overflow or underflow
        const Polygon triangle = {{0, 0}, {scale, 0}, {0, scale}};
        EXPECT_TRUE(PointInsideConvexPolygon2D(triangle, {0.25 * scale, 0.25 * scale}));
        EXPECT_FALSE(PointInsideConvexPolygon2D(triangle, {0.75 * scale, 0.75 * scale}));
    }
}

TEST(LineSegmentIntoBox, EndpointsEqualPointsAndTolerance) {
    const point2d lo{0, 0}, hi{10, 5};
    EXPECT_TRUE(LineSegmentIntoBox2d({point2d{10, 5}, point2d{50, 50}}, lo, hi, 0));  // corner
    EXPECT_FALSE(LineSegmentIntoBox2d({point2d{11, 2}, point2d{11, 2}}, lo, hi, 100));
    EXPECT_TRUE(LineSegmentIntoBox2d({point2d{-5, 2}, point2d{15, 3}}, lo, hi, 0));  // through
    const std::array<point2d, 2> above = {point2d{-5, 5.5}, point2d{15, 5.5}};
    EXPECT_FALSE(LineSegmentIntoBox2d(above, lo, hi, 0.25));
    EXPECT_TRUE(LineSegmentIntoBox2d(above, lo, hi, 0.5));
}

// The shortcut for far segments must agree with asking the host about every side.
TEST(LineSegmentIntoBox, AgreesWithTheHostOnEverySide) {
    const point2d lo{0, 0}, hi{40, 30}, corners[4] = {lo, {lo.x, hi.y}, hi, {hi.x, lo.y}};
    const auto inBox = [&](const point2d& p) {
        return lo.x <= p.x && p.x <= hi.x && lo.y <= p.y && p.y <= hi.y;
    };
    std::mt19937 random(3);
    std::uniform_real_distribution<double> coordinate(-20, 60);
    for (int i = 0; i < 20000; ++i) {
        std::array<point2d, 2> s;
        for (point2d& p : s) {
            p = {coordinate(random), coordinate(random)};
            if (i % 2)
                p = {std::round(p.x), std::round(p.y)};  // exact distances to the box
        }
        const double tolerance = std::round(coordinate(random)) / 4;
        bool expected = inBox(s[0]) || inBox(s[1]);
        for (int k = 0; k < 4 && !expected && s[0] != s[1]; ++k) {
            point2d meeting;
            expected = MMLine2D(corners[k], corners[(k + 1) % 4])
                           .GetIntersectionSegmentSegment(meeting, MMLine2D(s[0], s[1]), tolerance);
        }
        EXPECT_EQ(LineSegmentIntoBox2d(s, lo, hi, tolerance), expected) << i;
    }
}

TEST(EdgeOutline, ThicknessRadiiAndHullOrientation) {
    graphs::GraphMesh mesh;
    const MMTransformMatrix identity;
    // No element information: the bar collapses onto the projected vertices.
    const MStlGraphEdge& along = mesh.edge({0, 0, 0}, {100000, 0, 0});
    EXPECT_EQ(GetOutlineOfProjectedEdgeWithThickness(along, nullptr, identity),
              (Polygon{{0, 0}, {100000, 0}, {0, 0}}));

    // Unset (0) and negative thicknesses count as 5000: radius 2500. Clockwise, not closed.
    mesh.setThickness(along, 0, -7);
    const auto& info = *MStlBaseElementInfoStlDependency::GetDependency(&mesh.stl, false);
    const Polygon outline = GetOutlineOfProjectedEdgeWithThickness(along, info, identity);
    EXPECT_EQ(outline, (Polygon{{0, -2500}, {0, 2500}, {100000, 2500}, {100000, -2500}}));
    EXPECT_EQ(GetOutlineOfProjectedEdgeWithThickness(along, nullptr, identity), outline);

    // Radius per vertex, through the transform: seen along z the bar shows the square of
    // half-diagonal 200 at vertex 1, scaled by 0.5 and moved.
    const MStlGraphEdge& up = mesh.edge({0, 0, 0}, {0, 0, 1000});
    mesh.setThickness(up, 40, 400);
    MMTransformMatrix transform, shift;
    transform.MakeScale1D(0.5);
    shift.MakeTranslation({10, 20, 30});
    transform.PreMultiply(shift);
    EXPECT_EQ(pointSet(GetOutlineOfProjectedEdgeWithThickness(up, &info, transform)),
              (PointSet{{10, -80}, {110, 20}, {10, 120}, {-90, 20}}));
}

TEST(EdgeIntersectArea, TwoPointOutlinesAreSegmentsLongerOnesPolygons) {
    AU_MarkOperations::PolygonMarking::PixelGrid grid(10, 10, 1.0, false);
    grid.At(4, 6) = true;  // row 4, column 6
    EXPECT_TRUE(EdgeIntersectArea(grid, {{0.5, 2.5}, {9.5, 6.5}}));
    EXPECT_FALSE(EdgeIntersectArea(grid, {{0.5, 0.5}, {9.5, 0.5}}));
    EXPECT_TRUE(EdgeIntersectArea(grid, {{5, 3}, {8, 3}, {8, 6}, {5, 6}}));
    EXPECT_FALSE(EdgeIntersectArea(grid, {{0, 0}, {3, 0}, {3, 3}, {0, 3}}));
    EXPECT_FALSE(EdgeIntersectArea(grid, {{6.5, 4.5}}));
}

}  // namespace
