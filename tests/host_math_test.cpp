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

void expectNear(const point3d& actual, const point3d& expected, double tolerance = kTight) {
    EXPECT_NEAR(actual.x, expected.x, tolerance);
    EXPECT_NEAR(actual.y, expected.y, tolerance);
    EXPECT_NEAR(actual.z, expected.z, tolerance);
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
    // Random entries plus a dominant diagonal: comfortably invertible.
    MMTransformMatrix randomWellConditioned() {
        std::array<double, 16> values{};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 4; ++c)
                values[4 * r + c] = unit(random) + (r == c ? 4.0 : 0.0);
        values[15] = 1.0;
        return MMTransformMatrix(values);
    }
};

TEST_F(TransformTest, PreAndPostMultiplyComposeInDocumentedOrder) {
    const point3d p{1, 1, 1};
    MMTransformMatrix translateThenScale = translation(1, 2, 3);
    translateThenScale.PreMultiply(scale(2));
    expectNear(translateThenScale(p, false), {4, 6, 8});

    MMTransformMatrix scaleThenTranslate = translation(1, 2, 3);
    scaleThenTranslate.PostMultiply(scale(2));
    expectNear(scaleThenTranslate(p, false), {3, 4, 5});
    // Directions ignore the translation.
    expectNear(scaleThenTranslate(p, true), {2, 2, 2});
}

TEST_F(TransformTest, InvertRoundTripsAndRejectsSingular) {
    for (int trial = 0; trial < 50; ++trial) {
        const MMTransformMatrix m = randomWellConditioned();
        MMTransformMatrix inverse = m;
        ASSERT_TRUE(inverse.Invert());
        const point3d p = randomPoint();
        expectNear(inverse(m(p, false), false), p);
        expectNear(m(inverse(p, true), true), p);
    }
    MMTransformMatrix singular;
    singular.MakeScale3D(1.0, 0.0, 2.0);
    const MMTransformMatrix before = singular;
    EXPECT_FALSE(singular.Invert());
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            EXPECT_EQ(singular.Get(r, c), before.Get(r, c));
}

TEST_F(TransformTest, RotationInPlaneTurnsFromIntoToAboutCentre) {
    for (int trial = 0; trial < 50; ++trial) {
        const point3d from = randomPoint(1.0), to = randomPoint(3.0), centre = randomPoint();
        MMTransformMatrix r;
        ASSERT_TRUE(r.MakeRotationInPlane(from, to, centre));
        expectNear(r(centre, false), centre);
        const double fromLength = std::sqrt(from.x * from.x + from.y * from.y + from.z * from.z);
        const double toLength = std::sqrt(to.x * to.x + to.y * to.y + to.z * to.z);
        const double k = fromLength / toLength;
        expectNear(r({centre.x + from.x, centre.y + from.y, centre.z + from.z}, false),
                   {centre.x + k * to.x, centre.y + k * to.y, centre.z + k * to.z});
        // A rotation keeps lengths.
        const point3d d = r(to, true);
        EXPECT_NEAR(std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z), toLength, kTight);
    }
}

TEST_F(TransformTest, RotationBetweenOppositeAndDegenerateDirections) {
    const point3d centre{5, -2, 1};
    for (const point3d from : {point3d{1, 0, 0}, point3d{0.2, -0.3, 0.9}}) {
        MMTransformMatrix r;
        ASSERT_TRUE(r.MakeRotationInPlane(from, {-from.x, -from.y, -from.z}, centre));
        expectNear(r({centre.x + from.x, centre.y + from.y, centre.z + from.z}, false),
                   {centre.x - from.x, centre.y - from.y, centre.z - from.z});
        expectNear(r(centre, false), centre);
    }
    MMTransformMatrix unchanged = translation(1, 2, 3);
    EXPECT_FALSE(unchanged.MakeRotationInPlane({0, 0, 0}, {1, 0, 0}, centre));
    expectNear(unchanged({0, 0, 0}, false), {1, 2, 3});
}

TEST_F(TransformTest, Matrix4x4IsRowVectorLayout) {
    std::array<double, 16> values{};
    for (double& v : values)
        v = unit(random);
    const MMTransformMatrix transform(values);
    const VelSDK::Math::matrix4x4<double> m = transform;
    const point3d p = randomPoint();
    const point3d mapped = transform(p, false);
    for (int j = 0; j < 3; ++j)
        EXPECT_NEAR(mapped[j], m.m[0][j] * p.x + m.m[1][j] * p.y + m.m[2][j] * p.z + m.m[3][j],
                    kTight);
}

TEST_F(TransformTest, InverseTransformOfPositionAndDirection) {
    MMTransformMatrix m = scale(2);  // p -> 2p + (5, 0, 0)
    m.PreMultiply(translation(5, 0, 0));
    point3d out;
    ASSERT_TRUE(m.InverseTransform(out, {12, 2, 2}, false));
    expectNear(out, {3.5, 1, 1});
    ASSERT_TRUE(m.InverseTransform(out, {12, 2, 2}, true));
    expectNear(out, {6, 1, 1});
    VelSDK::Math::point3f f;
    ASSERT_TRUE(m.Transform(f, VelSDK::Math::point3f{1, 1, 1}, false));
    EXPECT_EQ(f, (VelSDK::Math::point3f{7, 2, 2}));
}

// ---- Segments ----

bool intersect(point2d a, point2d b, point2d c, point2d d, double tolerance, point2d& out) {
    return MMLine2D(a, b).GetIntersectionSegmentSegment(out, MMLine2D(c, d), tolerance);
}

TEST(Line2DTest, CrossingAndTouching) {
    point2d out;
    ASSERT_TRUE(intersect({0, 0}, {2, 2}, {0, 2}, {2, 0}, 0.0, out));
    EXPECT_EQ(out, (point2d{1, 1}));
    ASSERT_TRUE(intersect({0, 0}, {1, 0}, {1, 0}, {1, 5}, 0.0, out));  // shared endpoint
    EXPECT_EQ(out, (point2d{1, 0}));
    ASSERT_TRUE(intersect({0, 0}, {2, 0}, {1, 3}, {1, 0}, 0.0, out));  // T junction
    EXPECT_EQ(out, (point2d{1, 0}));
}

TEST(Line2DTest, ParallelAndNearMissNeedTolerance) {
    point2d out{-7, -7};
    EXPECT_FALSE(intersect({0, 0}, {1, 0}, {0, 1}, {1, 1}, 0.5, out));
    EXPECT_EQ(out, (point2d{-7, -7}));  // untouched on failure
    ASSERT_TRUE(intersect({0, 0}, {1, 0}, {0, 1}, {1, 1}, 1.0, out));
    EXPECT_DOUBLE_EQ(out.y, 0.5);
    EXPECT_FALSE(intersect({0, 0}, {1, 0}, {0.5, 0.1}, {0.5, 1}, 0.0, out));
    ASSERT_TRUE(intersect({0, 0}, {1, 0}, {0.5, 0.1}, {0.5, 1}, 0.2, out));
    EXPECT_NEAR(out.x, 0.5, kTight);
    EXPECT_NEAR(out.y, 0.05, kTight);
}

TEST(Line2DTest, CollinearOverlappingAndDisjoint) {
    point2d out;
    ASSERT_TRUE(intersect({0, 0}, {4, 0}, {2, 0}, {6, 0}, 0.0, out));
    EXPECT_EQ(out, (point2d{2, 0}));
    ASSERT_TRUE(intersect({0, 0}, {4, 0}, {6, 0}, {-1, 0}, 0.0, out));  // covers it, reversed
    EXPECT_EQ(out, (point2d{0, 0}));
    EXPECT_FALSE(intersect({0, 0}, {1, 0}, {2, 0}, {3, 0}, 0.5, out));
    ASSERT_TRUE(intersect({0, 0}, {1, 0}, {2, 0}, {3, 0}, 1.0, out));
    EXPECT_EQ(out, (point2d{1.5, 0}));
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
    int hits = 0;
    for (int trial = 0; trial < 2000; ++trial) {
        const point2d a{coordinate(random), coordinate(random)},
            b{coordinate(random), coordinate(random)};
        const point2d c{coordinate(random), coordinate(random)},
            d{coordinate(random), coordinate(random)};
        point2d out;
        if (!intersect(a, b, c, d, 0.0, out))
            continue;
        ++hits;
        EXPECT_LT(distanceToSegment(out, a, b), 1e-9);
        EXPECT_LT(distanceToSegment(out, c, d), 1e-9);
    }
    EXPECT_GT(hits, 100);
    EXPECT_LT(hits, 1900);
}

}  // namespace
