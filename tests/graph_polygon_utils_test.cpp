#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "line2d.h"
#include "mark_graph_polygon_utils.h"
#include "pixel_grid.h"
#include "support/graph_builders.h"

namespace {

using namespace MarkGraphPolygonUtils;
using AU_MarkOperations::PolygonMarking::PixelGrid;
using graphs::GraphMesh;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;
using Polygon = std::vector<point2d>;

double signedArea(const Polygon& polygon) {
    double area = 0;
    for (std::size_t i = 0; i < polygon.size(); ++i) {
        const point2d &a = polygon[i], &b = polygon[(i + 1) % polygon.size()];
        area += a.x * b.y - b.x * a.y;
    }
    return area / 2;
}

std::set<std::pair<double, double>> pointSet(const Polygon& polygon) {
    std::set<std::pair<double, double>> points;
    for (const point2d& p : polygon)
        points.insert({p.x, p.y});
    return points;
}

// ---- PointInsideConvexPolygon2D ----

TEST(PointInsideConvexPolygon, BorderBelongsToCounterClockwisePolygonsOnly) {
    const Polygon ccw = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    const Polygon cw(ccw.rbegin(), ccw.rend());
    for (const point2d border : {point2d{1, 0.5}, point2d{0.5, 0}, point2d{0, 0}, point2d{1, 1}}) {
        EXPECT_TRUE(PointInsideConvexPolygon2D(ccw, border)) << border.x << ", " << border.y;
        EXPECT_FALSE(PointInsideConvexPolygon2D(cw, border)) << border.x << ", " << border.y;
    }
    for (const Polygon* square : {&ccw, &cw}) {
        EXPECT_TRUE(PointInsideConvexPolygon2D(*square, {0.5, 0.5}));
        EXPECT_TRUE(PointInsideConvexPolygon2D(*square, {1e-9, 1 - 1e-9}));
        EXPECT_FALSE(PointInsideConvexPolygon2D(*square, {1.5, 0.5}));
        EXPECT_FALSE(PointInsideConvexPolygon2D(*square, {-1e-9, 0.5}));
    }
    EXPECT_TRUE(PointInsideConvexPolygon2D({}, {1e300, -7}));
}

TEST(PointInsideConvexPolygon, HugeAndTinyPolygonsDoNotOverflow) {
    for (const double scale : {1e300, 1e-300}) {
        const Polygon triangle = {{0, 0}, {scale, 0}, {0, scale}};
        EXPECT_TRUE(PointInsideConvexPolygon2D(triangle, {0.25 * scale, 0.25 * scale}));
        EXPECT_FALSE(PointInsideConvexPolygon2D(triangle, {0.75 * scale, 0.75 * scale}));
    }
}

// ---- LineSegmentIntoBox2d ----

TEST(LineSegmentIntoBox, EndpointsEqualPointsAndCrossings) {
    const point2d lo{0, 0}, hi{10, 5};
    EXPECT_TRUE(LineSegmentIntoBox2d({point2d{10, 5}, point2d{50, 50}}, lo, hi, 0));  // corner
    EXPECT_TRUE(LineSegmentIntoBox2d({point2d{-9, -9}, point2d{3, 0}}, lo, hi, 0));   // border
    EXPECT_FALSE(LineSegmentIntoBox2d({point2d{11, 2}, point2d{11, 2}}, lo, hi, 100));
    EXPECT_TRUE(LineSegmentIntoBox2d({point2d{-5, 2}, point2d{15, 3}}, lo, hi, 0));  // through
    EXPECT_TRUE(LineSegmentIntoBox2d({point2d{5, -1}, point2d{5, 9}}, lo, hi, 0));
    EXPECT_FALSE(LineSegmentIntoBox2d({point2d{-5, 6}, point2d{15, 6}}, lo, hi, 0));  // above
    EXPECT_FALSE(LineSegmentIntoBox2d({point2d{-1, -1}, point2d{-1, 9}}, lo, hi, 0));
}

TEST(LineSegmentIntoBox, ToleranceGoesToTheSegmentIntersection) {
    const point2d lo{0, 0}, hi{10, 5};
    const std::array<point2d, 2> passingAbove = {point2d{-5, 5.5}, point2d{15, 5.5}};
    EXPECT_FALSE(LineSegmentIntoBox2d(passingAbove, lo, hi, 0.25));
    EXPECT_TRUE(LineSegmentIntoBox2d(passingAbove, lo, hi, 0.5));
    const std::array<point2d, 2> nearCorner = {point2d{11, 6}, point2d{12, 5}};
    EXPECT_FALSE(LineSegmentIntoBox2d(nearCorner, lo, hi, 1.4));
    EXPECT_TRUE(LineSegmentIntoBox2d(nearCorner, lo, hi, 1.5));
}

// The far-segment shortcut must agree with asking the host about every side.
TEST(LineSegmentIntoBox, AgreesWithTheHostOnEverySide) {
    const point2d lo{0, 0}, hi{40, 30};
    std::mt19937 random(3);
    std::uniform_real_distribution<double> coordinate(-20, 60);
    std::uniform_int_distribution<int> rounding(0, 1);
    for (int i = 0; i < 20000; ++i) {
        std::array<point2d, 2> segment;
        for (point2d& p : segment) {
            p = {coordinate(random), coordinate(random)};
            if (rounding(random))
                p = {std::round(p.x), std::round(p.y)};  // exact distances to the box
        }
        const double tolerance = std::round(coordinate(random)) / 4;
        const point2d corners[4] = {lo, {lo.x, hi.y}, hi, {hi.x, lo.y}};
        bool expected = false;
        for (int k = 0; k < 4; ++k) {
            point2d meeting;
            expected |= MMLine2D(corners[k], corners[(k + 1) % 4])
                            .GetIntersectionSegmentSegment(
                                meeting, MMLine2D(segment[0], segment[1]), tolerance);
        }
        const auto inBox = [&](const point2d& p) {
            return lo.x <= p.x && p.x <= hi.x && lo.y <= p.y && p.y <= hi.y;
        };
        if (inBox(segment[0]) || inBox(segment[1]))
            expected = true;
        else if (segment[0] == segment[1])
            expected = false;
        EXPECT_EQ(LineSegmentIntoBox2d(segment, lo, hi, tolerance), expected) << i;
    }
}

// ---- GetOutlineOfProjectedEdgeWithThickness ----

struct OutlineTest : ::testing::Test {
    GraphMesh mesh;
    MMTransformMatrix identity;
};

TEST_F(OutlineTest, UnsetThicknessUsesRadius2500AndHullIsClockwise) {
    const MStlGraphEdge& edge = mesh.edge({0, 0, 0}, {100000, 0, 0});
    mesh.setThickness(edge, 0, -7);
    const auto& info = *MStlBaseElementInfoStlDependency::GetDependency(&mesh.stl, false);
    const Polygon outline = GetOutlineOfProjectedEdgeWithThickness(edge, info, identity);
    ASSERT_EQ(outline.size(), 4u);  // the closing repeat is removed
    EXPECT_EQ(pointSet(outline), (std::set<std::pair<double, double>>{
                                     {0, -2500}, {0, 2500}, {100000, -2500}, {100000, 2500}}));
    EXPECT_LT(signedArea(outline), 0);
    EXPECT_EQ(GetOutlineOfProjectedEdgeWithThickness(edge, nullptr, identity), outline);
}

TEST_F(OutlineTest, ThicknessPerVertexThroughTheTransform) {
    const MStlGraphEdge& edge = mesh.edge({0, 0, 0}, {0, 0, 1000});
    mesh.setThickness(edge, 40, 400);  // radii 20 and 200 around the edge along z
    MMTransformMatrix transform;
    transform.MakeScale1D(0.5);
    MMTransformMatrix shift;
    shift.MakeTranslation({10, 20, 30});
    transform.PreMultiply(shift);
    const Polygon outline = GetOutlineOfProjectedEdgeWithThickness(edge, nullptr, transform);
    // Seen along z, the bar is the square of half-diagonal 200 at vertex 1, scaled and moved.
    EXPECT_EQ(pointSet(outline),
              (std::set<std::pair<double, double>>{
                  {10, 20 - 100}, {10 + 100, 20}, {10, 20 + 100}, {10 - 100, 20}}));
}

TEST_F(OutlineTest, NoElementInfoCollapsesOntoTheProjectedVertices) {
    const MStlGraphEdge& edge = mesh.edge({-3, 4, 5}, {7, 8, -9});
    const Polygon outline = GetOutlineOfProjectedEdgeWithThickness(edge, nullptr, identity);
    EXPECT_EQ(pointSet(outline), (std::set<std::pair<double, double>>{{-3, 4}, {7, 8}}));
}

// Every bar corner lies at its radius from the edge, across the edge: the projected outline
// holds both projected vertices and stays within the larger radius of the projected segment.
TEST_F(OutlineTest, OutlinesHugTheProjectedBar) {
    std::mt19937 random(5);
    std::uniform_int_distribution<int> coordinate(-100000, 100000), thickness(1, 20000);
    MMTransformMatrix rotation;
    rotation.MakeRotationInPlane({0, 0, 1}, {1, 2, 3}, {0, 0, 0});
    for (int i = 0; i < 200; ++i) {
        const MStlGraphEdge& edge =
            mesh.edge({coordinate(random), coordinate(random), coordinate(random)},
                      {coordinate(random), coordinate(random), coordinate(random)});
        const int t0 = thickness(random), t1 = thickness(random);
        mesh.setThickness(edge, t0, t1);
        const Polygon outline = GetOutlineOfProjectedEdgeWithThickness(edge, nullptr, rotation);
        const Polygon counterClockwise(outline.rbegin(), outline.rend());
        point2d ends[2];
        for (int v = 0; v < 2; ++v) {
            const MStlPoint& p = *edge.GetVertex(v);
            const point3d mapped =
                rotation(point3d{double(p[0]), double(p[1]), double(p[2])}, false);
            ends[v] = {mapped.x, mapped.y};
            EXPECT_TRUE(PointInsideConvexPolygon2D(counterClockwise, ends[v]));
        }
        const double reach = std::max(t0, t1) * 0.5 * (1 + 1e-9);
        for (const point2d& p : outline) {
            const double dx = ends[1].x - ends[0].x, dy = ends[1].y - ends[0].y;
            const double t = std::clamp(
                ((p.x - ends[0].x) * dx + (p.y - ends[0].y) * dy) / (dx * dx + dy * dy), 0.0, 1.0);
            EXPECT_LE(std::hypot(p.x - ends[0].x - t * dx, p.y - ends[0].y - t * dy), reach);
        }
    }
}

// ---- EdgeIntersectArea ----

TEST(EdgeIntersectArea, TwoPointOutlinesAreSegmentsLongerOnesPolygons) {
    PixelGrid grid(10, 10, 1.0, false);
    grid.At(4, 6) = true;  // row 4, column 6
    EXPECT_TRUE(EdgeIntersectArea(grid, {{0.5, 2.5}, {9.5, 6.5}}));
    EXPECT_FALSE(EdgeIntersectArea(grid, {{0.5, 0.5}, {9.5, 0.5}}));
    EXPECT_TRUE(EdgeIntersectArea(grid, {{5, 3}, {8, 3}, {8, 6}, {5, 6}}));
    EXPECT_FALSE(EdgeIntersectArea(grid, {{0, 0}, {3, 0}, {3, 3}, {0, 3}}));
    EXPECT_FALSE(EdgeIntersectArea(grid, {{6.5, 4.5}}));
    EXPECT_FALSE(EdgeIntersectArea(grid, {}));
}

}  // namespace
