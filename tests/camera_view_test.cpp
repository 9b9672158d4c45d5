#include <velpick/camera_view.h>

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using AU_MarkOperations::PolygonMarking::FindModelToCameraViewTransformation;
using AU_MarkOperations::PolygonMarking::FindPolygonBBoxInPixelsDimention;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

constexpr double kTolerance = 1e-9;

point3d Apply(const MMTransformMatrix& transform, point3d p) {
    transform.Transform(p, false);
    return p;
}

TEST(CameraViewTransform, ScalesToPixelsMovesTheOriginPixelToZeroAndKeepsModelDepth) {
    // Model (3, 1, 7) at 2 pixels per unit, seen from the origin pixel (10, −4).
    const point3d p =
        Apply(FindModelToCameraViewTransformation(MMTransformMatrix(), 2.0, {10, -4}), {3, 1, 7});
    EXPECT_NEAR(p.x, 6 - 10 + 0.5, kTolerance);
    EXPECT_NEAR(p.y, 2 + 4 + 0.5, kTolerance);
    EXPECT_NEAR(p.z, 7, kTolerance);
}

TEST(CameraViewTransform, RotatedScaledViewMapsScreenToPixelsAndViewLengthToDepth) {
    constexpr double kViewScale = 3.0, kPixelScale = 2.5;
    MMTransformMatrix view, scale;
    view.MakeRotationInPlane({0, 0, 1}, {1, 2, 2}, {4, -1, 2});
    scale.MakeScale1D(kViewScale);
    view.PreMultiply(scale);
    const MMTransformMatrix result =
        FindModelToCameraViewTransformation(view, kPixelScale, {-7, 12});
    point3d dir{0, 0, 1};  // the model direction the view maps onto screen depth
    view.InverseTransform(dir, dir, true);
    const double n = std::sqrt(dir.x * dir.x + dir.y * dir.y + dir.z * dir.z);

    std::mt19937 random(5);
    std::uniform_real_distribution<double> coordinate(-50, 50), length(-20, 20);
    for (int trial = 0; trial < 20; ++trial) {
        const point3d m{coordinate(random), coordinate(random), coordinate(random)};
        const double l = length(random);
        const point3d a = Apply(result, m), screen = Apply(view, m);
        const point3d b =
            Apply(result, {m.x + l * dir.x / n, m.y + l * dir.y / n, m.z + l * dir.z / n});
        EXPECT_NEAR(a.x, screen.x * kPixelScale + 7 + 0.5, kTolerance);
        EXPECT_NEAR(a.y, screen.y * kPixelScale - 12 + 0.5, kTolerance);
        EXPECT_NEAR(b.x - a.x, 0.0, kTolerance);
        EXPECT_NEAR(b.y - a.y, 0.0, kTolerance);
        EXPECT_NEAR(b.z - a.z, l, kTolerance);
    }
}

TEST(PolygonPixelBounds, CoordinatesAreScaledThenFlooredAndEmptyGivesInt32Min) {
    struct Case {
        std::vector<point2d> polygon;
        double scale;
        double minX, minY, maxX, maxY;
    };
    const double m = -2147483648.0;
    for (const Case& c : std::vector<Case>{{{}, 1.0, m, m, m, m},
                                           {{{-0.5, -3.2}, {-0.1, -0.7}}, 1.0, -1, -4, -1, -1},
                                           {{{0.2, 1.0}, {3.7, 2.9}, {1.0, 5.99}}, 1.0, 0, 1, 3, 5},
                                           {{{1.3, -2.6}, {4.9, 7.3}}, 2.5, 3, -7, 12, 18}}) {
        SCOPED_TRACE(c.minY);
        const auto box = FindPolygonBBoxInPixelsDimention(c.polygon, c.scale);
        EXPECT_EQ(box.min.x, c.minX);
        EXPECT_EQ(box.min.y, c.minY);
        EXPECT_EQ(box.max.x, c.maxX);
        EXPECT_EQ(box.max.y, c.maxY);
    }
}

}  // namespace
