#include <velpick/camera_view.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <tuple>
#include <vector>

namespace {

using AU_MarkOperations::PolygonMarking::FindModelToCameraViewTransformation;
using AU_MarkOperations::PolygonMarking::FindPolygonBBoxInPixelsDimention;
using VelSDK::Math::point2d;
using VelSDK::Math::point3d;

constexpr double kTolerance = 1e-9;

// For the identity view and a rotated, scaled one: model points land on their screen position
// scaled to pixels, moved so that the origin pixel is zero and centred on half pixels, and a
// model length along the view direction becomes the same depth with no move on screen.
TEST(CameraViewTransform, MapsScreenToPixelsFromTheOriginPixelAndViewLengthToDepth) {
    constexpr double kPixelScale = 2.5;
    MMTransformMatrix rotated, scale;
    rotated.MakeRotationInPlane({0, 0, 1}, {1, 2, 2}, {4, -1, 2});
    scale.MakeScale1D(3.0);
    rotated.PreMultiply(scale);
    std::mt19937 random(5);
    std::uniform_real_distribution<double> coordinate(-50, 50), length(-20, 20);
    for (const MMTransformMatrix& view : {MMTransformMatrix(), rotated}) {
        const MMTransformMatrix result =
            FindModelToCameraViewTransformation(view, kPixelScale, {-7, 12});
        point3d dir{0, 0, 1};  // the model direction the view maps onto screen depth, n long
        view.InverseTransform(dir, dir, true);
        const double n = std::hypot(dir.x, dir.y, dir.z);
        for (int trial = 0; trial < 20; ++trial) {
            const point3d m{coordinate(random), coordinate(random), coordinate(random)};
            const double l = length(random);
            const point3d a = result(m, false), screen = view(m, false);
            const point3d b = result({m.x + l * dir.x, m.y + l * dir.y, m.z + l * dir.z}, false);
            EXPECT_NEAR(a.x, screen.x * kPixelScale + 7 + 0.5, kTolerance);
            EXPECT_NEAR(a.y, screen.y * kPixelScale - 12 + 0.5, kTolerance);
            EXPECT_NEAR(std::hypot(b.x - a.x, b.y - a.y, b.z - a.z - l * n), 0.0, kTolerance);
        }
    }
}

TEST(PolygonPixelBounds, CoordinatesAreScaledThenFlooredAndEmptyGivesInt32Min) {
    for (const auto& [polygon, scale, expected] :
         std::vector<std::tuple<std::vector<point2d>, double, std::array<double, 4>>>{
             {{}, 1.0, {INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN}},
             {{{-0.5, -3.2}, {-0.1, -0.7}}, 1.0, {-1, -4, -1, -1}},
             {{{0.2, 1.0}, {3.7, 2.9}, {1.0, 5.99}}, 1.0, {0, 1, 3, 5}},
             {{{1.3, -2.6}, {4.9, 7.3}}, 2.5, {3, -7, 12, 18}}}) {
        const auto box = FindPolygonBBoxInPixelsDimention(polygon, scale);
        EXPECT_EQ((std::array{box.min.x, box.min.y, box.max.x, box.max.y}), expected);
    }
}

}  // namespace
