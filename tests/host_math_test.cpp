#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include <velpick/host/line2d.h>
#include <velpick/host/transform_matrix.h>

namespace {

using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

constexpr double kTight = 1e-9;

void expectNear(const point3d& actual, const point3d& expected) {
    EXPECT_NEAR(actual.x, expected.x, kTight);
    EXPECT_NEAR(actual.y, expected.y, kTight);
    EXPECT_NEAR(actual.z, expected.z, kTight);
}

double length(const point3d& p) {
    return std::sqrt(p.x * p.x + p.y * p.y + p.z * p.z);
}

point3d plus(const point3d& a, const point3d& b, double k = 1.0) {
    return {a.x + k * b.x, a.y + k * b.y, a.z + k * b.z};
}

MMTransformMatrix translation(double x, double y, double z) {
    MMTransformMatrix m;
    m.MakeTranslation({x, y, z});
    return m;
}

MMTransformMatrix scale(double factor) {
    MMTransformMatrix m;
    m.MakeScale1D(factor);
    return m;
}

class TransformTest : public ::testing::Test {
  protected:
    std::mt19937 random{42};
    std::uniform_real_distribution<double> unit{-1.0, 1.0};

    point3d randomPoint(double extent = 100.0) {
        return {extent * unit(random), extent * unit(random), extent * unit(random)};
    }
    // Random entries plus a dominant diagonal when `invertible`.
    std::array<double, 16> randomValues(bool invertible) {
        std::array<double, 16> values{};
        for (int i = 0; i < 12; ++i)
            values[i] = unit(random) + (invertible && i % 5 == 0 ? 4.0 : 0.0);
        values[15] = 1.0;
        return values;
    }
};

TEST_F(TransformTest, ComposeMapAndInvertPositionsAndDirections) {
    MMTransformMatrix translateThenScale = translation(1, 2, 3);
    translateThenScale.PreMultiply(scale(2));
    expectNear(translateThenScale({1, 1, 1}, false), {4, 6, 8});
    MMTransformMatrix scaleThenTranslate = translation(1, 2, 3);
    scaleThenTranslate.PostMultiply(scale(2));
    expectNear(scaleThenTranslate({1, 1, 1}, false), {3, 4, 5});
    expectNear(scaleThenTranslate({1, 1, 1}, true), {2, 2, 2});  // directions: no translation

    point3d out;
    ASSERT_TRUE(scaleThenTranslate.InverseTransform(out, {13, 2, 2}, false));
    expectNear(out, {6, 0, -0.5});
    ASSERT_TRUE(scaleThenTranslate.InverseTransform(out, {12, 2, 2}, true));
    expectNear(out, {6, 1, 1});
    VelSDK::Math::point3f f;
    ASSERT_TRUE(scaleThenTranslate.Transform(f, VelSDK::Math::point3f{1, 1, 1}, false));
    EXPECT_EQ(f, (VelSDK::Math::point3f{3, 4, 5}));

    for (int trial = 0; trial < 50; ++trial) {
        const MMTransformMatrix m(randomValues(true));
        MMTransformMatrix inverse = m;
        ASSERT_TRUE(inverse.Invert());
        const point3d p = randomPoint();
        expectNear(inverse(m(p, false), false), p);
        expectNear(m(inverse(p, true), true), p);
        // The conversion to matrix4x4 is the row-vector layout.
        const VelSDK::Math::matrix4x4<double> rows = m;
        for (int j = 0; j < 3; ++j)
            EXPECT_NEAR(m(p, false)[j],
                        rows.m[0][j] * p.x + rows.m[1][j] * p.y + rows.m[2][j] * p.z + rows.m[3][j],
                        kTight);
    }
    MMTransformMatrix singular;
    singular.MakeScale3D(1.0, 0.0, 2.0);
    EXPECT_FALSE(singular.Invert());
    expectNear(singular({3, 4, 5}, false), {3, 0, 10});  // left unchanged
}

TEST_F(TransformTest, RotationInPlaneTurnsFromIntoToAboutCentre) {
    for (int trial = 0; trial < 52; ++trial) {
        point3d from = randomPoint(1.0), to = randomPoint(3.0);
        if (trial >= 50) {  // opposite directions: a half turn
            from = trial == 50 ? point3d{1, 0, 0} : point3d{0.2, -0.3, 0.9};
            to = {-from.x, -from.y, -from.z};
        }
        const point3d centre = randomPoint();
        MMTransformMatrix r;
        ASSERT_TRUE(r.MakeRotationInPlane(from, to, centre));
        expectNear(r(centre, false), centre);
        expectNear(r(plus(centre, from), false), plus(centre, to, length(from) / length(to)));
        EXPECT_NEAR(length(r(to, true)), length(to), kTight);  // lengths are kept
    }
    MMTransformMatrix unchanged = translation(1, 2, 3);
    EXPECT_FALSE(unchanged.MakeRotationInPlane({0, 0, 0}, {1, 0, 0}, {5, -2, 1}));
    expectNear(unchanged({0, 0, 0}, false), {1, 2, 3});
}

bool intersect(point2d a, point2d b, point2d c, point2d d, double tolerance, point2d& out) {
    return MMLine2D(a, b).GetIntersectionSegmentSegment(out, MMLine2D(c, d), tolerance);
}

TEST(Line2DTest, CrossingTouchingParallelAndCollinearSegments) {
    struct Case {
        point2d a, b, c, d;
        double tolerance;
        bool meet;
        point2d out;  // x NaN: any x
    };
    const Case cases[] = {
        {{0, 0}, {2, 2}, {0, 2}, {2, 0}, 0.0, true, {1, 1}},
        {{0, 0}, {1, 0}, {1, 0}, {1, 5}, 0.0, true, {1, 0}},  // shared endpoint
        {{0, 0}, {2, 0}, {1, 3}, {1, 0}, 0.0, true, {1, 0}},  // T junction
        {{0, 0}, {1, 0}, {0, 1}, {1, 1}, 0.5, false, {}},     // parallel, too far
        {{0, 0}, {1, 0}, {0, 1}, {1, 1}, 1.0, true, {NAN, 0.5}},
        {{0, 0}, {1, 0}, {0.5, 0.1}, {0.5, 1}, 0.0, false, {}},  // near miss
        {{0, 0}, {1, 0}, {0.5, 0.1}, {0.5, 1}, 0.2, true, {0.5, 0.05}},
        {{0, 0}, {4, 0}, {2, 0}, {6, 0}, 0.0, true, {2, 0}},   // collinear overlap
        {{0, 0}, {4, 0}, {6, 0}, {-1, 0}, 0.0, true, {0, 0}},  // covers it, reversed
        {{0, 0}, {1, 0}, {2, 0}, {3, 0}, 0.5, false, {}},      // collinear, disjoint
        {{0, 0}, {1, 0}, {2, 0}, {3, 0}, 1.0, true, {1.5, 0}},
    };
    for (const Case& c : cases) {
        point2d out{-7, -7};
        EXPECT_EQ(intersect(c.a, c.b, c.c, c.d, c.tolerance, out), c.meet)
            << c.c.x << "," << c.c.y << " tolerance " << c.tolerance;
        const point2d expected = c.meet ? c.out : point2d{-7, -7};  // untouched on failure
        if (!std::isnan(expected.x)) {
            EXPECT_NEAR(out.x, expected.x, kTight);
        }
        EXPECT_NEAR(out.y, expected.y, kTight);
    }
}

// Distance from p to segment [a, b], for checking reported points independently.
double distanceToSegment(point2d p, point2d a, point2d b) {
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double t =
        std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / (dx * dx + dy * dy), 0.0, 1.0);
    return std::hypot(p.x - a.x - t * dx, p.y - a.y - t * dy);
}

TEST(Line2DTest, ReportedPointLiesOnBothRandomSegments) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> coordinate(-10.0, 10.0);
    const auto point = [&] { return point2d{coordinate(random), coordinate(random)}; };
    int hits = 0;
    for (int trial = 0; trial < 2000; ++trial) {
        const point2d a = point(), b = point(), c = point(), d = point();
        point2d out;
        if (!intersect(a, b, c, d, 0.0, out))
            continue;
        ++hits;
        EXPECT_LT(distanceToSegment(out, a, b), kTight);
        EXPECT_LT(distanceToSegment(out, c, d), kTight);
    }
    EXPECT_GT(hits, 100);
    EXPECT_LT(hits, 1900);
}

}  // namespace
