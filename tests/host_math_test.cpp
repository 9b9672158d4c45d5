#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include <velpick/host/line2d.h>
#include <velpick/host/transform_matrix.h>

namespace {

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

constexpr double kTight = 1e-9;

double distance(const point3d& a, const point3d& b = {}) {
    return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
}

TEST(TransformTest, ComposeMapInvertAndRotate) {
    MMTransformMatrix scale, translation, singular;
    scale.MakeScale1D(2);
    translation.MakeTranslation({1, 2, 3});
    const MMTransformMatrix translateThenScale = MMTransformMatrix(translation).PreMultiply(scale);
    const MMTransformMatrix scaleThenTranslate = MMTransformMatrix(translation).PostMultiply(scale);
    point3d back;
    ASSERT_TRUE(scaleThenTranslate.InverseTransform(back, {13, 2, 2}, false));
    singular.MakeScale3D(1.0, 0.0, 2.0);
    EXPECT_FALSE(singular.Invert());
    for (const auto& [mapped, expected] : std::vector<std::pair<point3d, point3d>>{
             {translateThenScale({1, 1, 1}, false), {4, 6, 8}},
             {scaleThenTranslate({1, 1, 1}, false), {3, 4, 5}},
             {scaleThenTranslate({1, 1, 1}, true), {2, 2, 2}},  // directions: no translation
             {back, {6, 0, -0.5}},
             {singular({3, 4, 5}, false), {3, 0, 10}}})  // a failed inversion changes nothing
        EXPECT_LT(distance(mapped, expected), kTight) << expected.x;

    std::mt19937 random(42);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const auto point = [&](double extent) {
        return point3d{extent * unit(random), extent * unit(random), extent * unit(random)};
    };
    for (int trial = 0; trial < 50; ++trial) {
        // A rotation in the plane of `from` and `to` turns one into the other about the centre
        // and keeps lengths; opposite directions make a half turn.
        const point3d from = point(1.0), centre = point(100.0);
        const point3d to = trial % 10 ? point(3.0) : point3d{-from.x, -from.y, -from.z};
        const double k = distance(from) / distance(to);
        MMTransformMatrix r;
        ASSERT_TRUE(r.MakeRotationInPlane(from, to, centre));
        EXPECT_LT(distance(r(centre, false), centre), kTight);
        EXPECT_LT(distance(r(from, true), {k * to.x, k * to.y, k * to.z}), kTight);
        EXPECT_NEAR(distance(r(to, true)), distance(to), kTight);
    }
    EXPECT_FALSE(scale.MakeRotationInPlane({0, 0, 0}, {1, 0, 0}, {5, -2, 1}));
    EXPECT_LT(distance(scale({1, 1, 1}, false), {2, 2, 2}), kTight);  // left unchanged
}

TEST(Line2DTest, CrossingTouchingParallelAndCollinearSegmentsAndRandomOnes) {
    // Segments ab and cd, the tolerance, whether they meet and where (x NaN: any x).
    const std::tuple<point2d, point2d, point2d, point2d, double, bool, point2d> cases[] = {
        {{0, 0}, {2, 2}, {0, 2}, {2, 0}, 0.0, true, {1, 1}},
        {{0, 0}, {2, 0}, {1, 3}, {1, 0}, 0.0, true, {1, 0}},  // T junction
        {{0, 0}, {1, 0}, {0, 1}, {1, 1}, 0.5, false, {}},     // parallel, too far
        {{0, 0}, {1, 0}, {0, 1}, {1, 1}, 1.0, true, {NAN, 0.5}},
        {{0, 0}, {1, 0}, {0.5, 0.1}, {0.5, 1}, 0.0, false, {}},  // near miss
        {{0, 0}, {1, 0}, {0.5, 0.1}, {0.5, 1}, 0.2, true, {0.5, 0.05}},
        {{0, 0}, {4, 0}, {2, 0}, {6, 0}, 0.0, true, {2, 0}},    // collinear overlap
        {{0, 0}, {4, 0}, {6, 0}, {-1, 0}, 0.0, true, {0, 0}},   // covers it, reversed
        {{0, 0}, {1, 0}, {2, 0}, {3, 0}, 1.0, true, {1.5, 0}},  // collinear, disjoint
    };
    for (const auto& [a, b, c, d, tolerance, meet, at] : cases) {
        point2d out{-7, -7};
        EXPECT_EQ(MMLine2D(a, b).GetIntersectionSegmentSegment(out, {c, d}, tolerance), meet)
            << c.x << "," << c.y << " tolerance " << tolerance;
        const point2d expected = meet ? at : point2d{-7, -7};  // untouched on failure
        EXPECT_NEAR(std::isnan(expected.x) ? 0.0 : out.x - expected.x, 0.0, kTight);
        EXPECT_NEAR(out.y, expected.y, kTight);
    }
    // Random segments: a point reported for two of them lies on both.
    std::mt19937 random(3);
    std::uniform_real_distribution<double> coordinate(-10.0, 10.0);
    const auto offSegment = [](point2d p, point2d a, point2d b) {  // distance from p to ab
        const double dx = b.x - a.x, dy = b.y - a.y;
        const double t =
            std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / (dx * dx + dy * dy), 0.0, 1.0);
        return std::hypot(p.x - a.x - t * dx, p.y - a.y - t * dy);
    };
    for (int trial = 0; trial < 2000; ++trial) {
        point2d s[4], out;
        for (point2d& p : s)
            p = {coordinate(random), coordinate(random)};
        if (MMLine2D(s[0], s[1]).GetIntersectionSegmentSegment(out, {s[2], s[3]}, 0.0)) {
            EXPECT_LT(std::max(offSegment(out, s[0], s[1]), offSegment(out, s[2], s[3])), kTight);
        }
    }
}

}  // namespace
