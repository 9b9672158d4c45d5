#include "camera_view.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

using AU_MarkOperations::PolygonMarking::FindModelToCameraViewTransformation;
using AU_MarkOperations::PolygonMarking::FindPolygonBBoxInPixelsDimention;
using VelSDK::Math::point2d;
using VelSDK::Math::point2i;
using VelSDK::Math::point3d;

// Transforms here are a few products of exact-ish factors: agreement to this is exact.
constexpr double kTransformTolerance = 1e-9;

point3d Apply(const MMTransformMatrix& transform, point3d p) {
    transform.Transform(p, false);
    return p;
}

TEST(CameraViewTransform, IdentityViewPutsTheModelOriginAtTheFirstPixelCentre) {
    const MMTransformMatrix result =
        FindModelToCameraViewTransformation(MMTransformMatrix(), 1.0, point2i{0, 0});
    const point3d p = Apply(result, {0, 0, 0});
    EXPECT_NEAR(p.x, 0.5, kTransformTolerance);
    EXPECT_NEAR(p.y, 0.5, kTransformTolerance);
    EXPECT_NEAR(p.z, 0.0, kTransformTolerance);
}

TEST(CameraViewTransform, ScalesToPixelsAndMovesTheOriginPixelToZero) {
    const MMTransformMatrix result =
        FindModelToCameraViewTransformation(MMTransformMatrix(), 2.0, point2i{10, -4});
    const point3d p = Apply(result, {3, 1, 7});
    EXPECT_NEAR(p.x, 6 - 10 + 0.5, kTransformTolerance);
    EXPECT_NEAR(p.y, 2 + 4 + 0.5, kTransformTolerance);
    EXPECT_NEAR(p.z, 7, kTransformTolerance);  // depth stays in model length
}

class RotatedScaledView : public ::testing::Test {
  protected:
    static constexpr double kViewScale = 3.0;
    static constexpr double kPixelScale = 2.5;
    MMTransformMatrix view;
    MMTransformMatrix result;
    point3d viewingDirection;  // the model direction the view maps onto screen depth

    void SetUp() override {
        view.MakeRotationInPlane({0, 0, 1}, {1, 2, 2}, {4, -1, 2});
        MMTransformMatrix scale;
        scale.MakeScale1D(kViewScale);
        view.PreMultiply(scale);
        result = FindModelToCameraViewTransformation(view, kPixelScale, point2i{-7, 12});
        viewingDirection = {0, 0, 1};
        view.InverseTransform(viewingDirection, viewingDirection, true);
        const double length = std::sqrt(viewingDirection.x * viewingDirection.x +
                                        viewingDirection.y * viewingDirection.y +
                                        viewingDirection.z * viewingDirection.z);
        viewingDirection = {viewingDirection.x / length, viewingDirection.y / length,
                            viewingDirection.z / length};
    }
};

TEST_F(RotatedScaledView, DepthChangesByTheModelLengthMovedAlongTheView) {
    std::mt19937 random(5);
    std::uniform_real_distribution<double> coordinate(-50, 50), length(-20, 20);
    for (int trial = 0; trial < 20; ++trial) {
        const point3d m{coordinate(random), coordinate(random), coordinate(random)};
        const double l = length(random);
        const point3d moved{m.x + l * viewingDirection.x, m.y + l * viewingDirection.y,
                            m.z + l * viewingDirection.z};
        const point3d a = Apply(result, m), b = Apply(result, moved);
        EXPECT_NEAR(b.x - a.x, 0.0, kTransformTolerance);
        EXPECT_NEAR(b.y - a.y, 0.0, kTransformTolerance);
        EXPECT_NEAR(b.z - a.z, l, kTransformTolerance);
    }
}

TEST_F(RotatedScaledView, ScreenPositionIsViewTimesPixelScaleFromTheOriginPixel) {
    const point3d m{1.5, -2.0, 3.25};
    const point3d screen = Apply(view, m);
    const point3d pixel = Apply(result, m);
    EXPECT_NEAR(pixel.x, screen.x * kPixelScale + 7 + 0.5, kTransformTolerance);
    EXPECT_NEAR(pixel.y, screen.y * kPixelScale - 12 + 0.5, kTransformTolerance);
}

TEST(PolygonPixelBounds, EmptyPolygonGivesInt32MinEverywhere) {
    const auto box = FindPolygonBBoxInPixelsDimention({}, 1.0);
    EXPECT_EQ(box.min.x, -2147483648.0);
    EXPECT_EQ(box.min.y, -2147483648.0);
    EXPECT_EQ(box.max.x, -2147483648.0);
    EXPECT_EQ(box.max.y, -2147483648.0);
}

TEST(PolygonPixelBounds, NegativeCoordinatesAreFloored) {
    const auto box = FindPolygonBBoxInPixelsDimention({{-0.5, -3.2}, {-0.1, -0.7}}, 1.0);
    EXPECT_EQ(box.min.x, -1.0);
    EXPECT_EQ(box.min.y, -4.0);
    EXPECT_EQ(box.max.x, -1.0);
    EXPECT_EQ(box.max.y, -1.0);
}

TEST(PolygonPixelBounds, MaximaAreFlooredNotRoundedUp) {
    const auto box = FindPolygonBBoxInPixelsDimention({{0.2, 1.0}, {3.7, 2.9}, {1.0, 5.99}}, 1.0);
    EXPECT_EQ(box.min.x, 0.0);
    EXPECT_EQ(box.min.y, 1.0);
    EXPECT_EQ(box.max.x, 3.0);
    EXPECT_EQ(box.max.y, 5.0);
}

TEST(PolygonPixelBounds, BoundsAreScaledBeforeFlooring) {
    const auto box = FindPolygonBBoxInPixelsDimention({{1.3, -2.6}, {4.9, 7.3}}, 2.5);
    EXPECT_EQ(box.min.x, 3.0);
    EXPECT_EQ(box.min.y, -7.0);
    EXPECT_EQ(box.max.x, 12.0);
    EXPECT_EQ(box.max.y, 18.0);
}

}  // namespace
