#include "mark_polygon/triangle_raster.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <tuple>
#include <vector>

#include <velpick/pixel_grid.h>

using namespace AU_MarkOperations::PolygonMarking;
using VelSDK::Math::point3f;

namespace {

constexpr int kWidth = 16, kHeight = 12;  // the depth raster's; rows of the span records

// A 16 × 12 depth raster filled by hand, every cell but one in the region. A pixel goes to the
// strictly nearer triangle; finalizing makes the owners visible, leaves the hidden one covered
// only, and turns region pixels (only those) into depth − tolerance. Against those thresholds
// a vertex in a region pixel passes at z ≥ threshold, a span pixel only at z > threshold.
TEST(DepthRaster, NearestOwnsThePixelAndVisibilityIsJudgedAgainstDepthLessTolerance) {
    constexpr std::uint32_t kNear = 1, kFar = 2;  // owner numbers
    _DepthRaster raster;
    raster.m_depthTolerance = 3;
    raster.m_width = kWidth, raster.m_height = kHeight;
    raster.m_region = std::make_unique<PixelGrid>(kWidth, kHeight, 1.0, true);
    raster.m_region->At(3, 4) = false;  // row 3, column 4
    raster.m_depth = std::make_unique<_DepthEntry[]>(kWidth * kHeight);
    std::fill_n(raster.m_depth.get(), kWidth * kHeight, _DepthEntry{-FLT_MAX, {}});
    std::uint8_t flags[3] = {};  // by owner number, the coverage noted as the picker does
    for (auto [owner, from, to, z] :
         {std::tuple{kFar, 1.0f, 6.0f, 2.0f}, {kNear, -1.0f, 40.0f, 9.0f}})
        if (_RasterizeTriangleDepth(raster, {from, from, z}, {to, from, z}, {from, to, z}, owner))
            flags[owner] |= kCoveredFlag;
    const _DepthEntry& outside = raster.m_depth[3 * kWidth + 4];
    EXPECT_EQ(outside.depth, -FLT_MAX);  // not drawn
    _FinalizeDepthRaster(raster, flags);
    EXPECT_EQ(std::vector<int>(flags, flags + 3),
              (std::vector<int>{0, kCoveredFlag | kVisibleFlag, kCoveredFlag}));
    EXPECT_EQ(outside.owner, kNoOwner);  // nor turned into a threshold
    EXPECT_TRUE(_TestTriangleVisibility(raster, {5.5f, 5.5f, 6}, {30, 5, 3}, {30, 30, 3}));
    EXPECT_FALSE(_TestTriangleVisibility(raster, {5.5f, 5.5f, 5.99f}, {30, 5, 3}, {30, 30, 3}));
    EXPECT_FALSE(_TestTriangleVisibility(raster, {-5, -5, 6}, {60, -5, 6}, {-5, 60, 6}));
    EXPECT_TRUE(_TestTriangleVisibility(raster, {-5, -5, 6.5f}, {60, -5, 6.5f}, {-5, 60, 6}));
}

/// The edge walk written into span records, as the rasterizer's rules state it: from p's own
/// y (or from y = 0 extrapolated), to q's row clamped to the last row; nothing when p is at or
/// past the last row's centre or q lies below row 0.
RowRange RecordEdge(std::vector<_DepthSpan>& spans, bool left, const point3f& p, const point3f& q) {
    const std::int32_t height = static_cast<std::int32_t>(spans.size());
    const float dx = (q.x - p.x) / (q.y - p.y), dz = (q.z - p.z) / (q.y - p.y);
    if (p.y >= static_cast<float>(height - 0.5) || q.y < 0.0f)
        return {};
    const bool below = p.y < 0.0f;
    float x = below ? p.x - dx * p.y : p.x, z = below ? p.z - dz * p.y : p.z;
    const float endY = q.y >= static_cast<float>(height - 0.5) ? height - 1 : q.y;
    const RowRange rows{std::max(TruncateToInt32(below ? 0.0f : p.y), 0),
                        std::min(TruncateToInt32(endY), height - 1)};
    for (std::int32_t row = rows.first; row <= rows.last; ++row, x += dx, z += dz) {
        (left ? spans[row].xLeft : spans[row].xRight) = x;
        (left ? spans[row].zLeft : spans[row].zRight) = z;
    }
    return rows;
}

/// The rows of a triangle whose two boundaries were written, after its three edge walks.
RowRange RecordTriangle(std::vector<_DepthSpan>& spans, point3f a, point3f b, point3f c) {
    const detail::TriangleFrame f = detail::SetUpTriangle(a, b, c);
    const bool leftEndsFirst = f.right->y > f.left->y;
    const point3f& bottom = leftEndsFirst ? *f.right : *f.left;
    RowRange left = RecordEdge(spans, true, *f.top, *f.left);
    RowRange right = RecordEdge(spans, false, *f.top, *f.right);
    const RowRange lower = leftEndsFirst ? RecordEdge(spans, true, *f.left, *f.right)
                                         : RecordEdge(spans, false, *f.right, *f.left);
    RowRange& ending = leftEndsFirst ? left : right;
    if (ending.Empty() || lower.Empty())
        ending = ending.Empty() ? lower : ending;
    else
        ending = {std::min(ending.first, lower.first), std::max(ending.last, lower.last)};
    const RowRange rows{std::max(TruncateToInt32(f.top->y), 0),
                        std::min(TruncateToInt32(bottom.y), std::int32_t(spans.size()) - 1)};
    return Intersect(rows, Intersect(left, right));
}

// The row scan must hand each row the very floats the span records hold, in every band:
// bottom-edge handover rows, equal rows and horizontal edges (coordinates on a quarter grid
// make those frequent), triangles clamped at the first and last rows, and bands that start
// inside a triangle.
TEST(ScanTriangleRows, RowsAndBoundariesEqualTheSpanRecordsInEveryBand) {
    std::mt19937 random(5);
    std::uniform_int_distribution<int> quarter(-8, 4 * kHeight + 8), split(0, kHeight);
    const auto corner = [&] {
        return point3f{quarter(random) / 4.0f, quarter(random) / 4.0f, quarter(random) / 4.0f};
    };
    std::vector<_DepthSpan> records(kHeight);
    for (int trial = 0; trial < 30000; ++trial) {
        const point3f a = corner(), b = corner(), c = corner();
        const std::int32_t cut = split(random);
        const RowRange bands[] = {AllRows(kHeight), {cut, kHeight - 1}, {0, cut - 1}};
        const RowRange band = bands[trial % 3];
        const RowRange rows = Intersect(RecordTriangle(records, a, b, c), band);
        std::int32_t expected = rows.first;
        detail::ScanTriangleRows<true>(
            detail::RasterRows(kHeight), band, a, b, c,
            [&](std::int32_t row, const _DepthSpan& span) {
                EXPECT_TRUE(row == expected++ && !std::memcmp(&span, &records[row], sizeof span))
                    << "trial " << trial << " row " << row;
                return false;
            });
        EXPECT_EQ(expected, std::max(rows.first, rows.last + 1)) << "trial " << trial;
    }
}

/// A 20 × 20 region raster of one pixel.
_RegionRaster OnePixel(int column, int row) {
    _RegionRaster raster;
    raster.m_width = raster.m_height = 20;
    raster.m_region = std::make_shared<PixelGrid>(20, 20, 1.0, false);
    raster.m_region->At(row, column) = true;
    return raster;
}

/// Signed distance of (x, y) inside the triangle: the smallest distance to an edge line,
/// positive inside.
double InsideMargin(const point3f (&t)[3], double x, double y) {
    const double orientation =
        (t[1].x - t[0].x) * (t[2].y - t[0].y) - (t[2].x - t[0].x) * (t[1].y - t[0].y);
    double margin = std::numeric_limits<double>::max();
    for (int i = 0; i < 3; ++i) {
        const point3f &p = t[i], &q = t[(i + 1) % 3];
        const double edge =
            ((x - p.x) * (q.y - p.y) - (y - p.y) * (q.x - p.x)) / std::hypot(q.x - p.x, q.y - p.y);
        margin = std::min(margin, orientation > 0 ? -edge : edge);
    }
    return margin;
}

// Against the centre of a random region pixel: a triangle with the centre a pixel deep inside
// touches it; one with the centre beyond the scan's reach (a row, plus the slope's overshoot)
// does not. A triangle inside one pixel still tests that pixel. Unlike the depth walk, the
// region walk clamps an edge ending below row 0 to row 0.
TEST(TriangleTouchesRegion, AgreesWithPixelCentres) {
    constexpr double kReach = 2.0;  // pixels a boundary sampled once per row may overshoot
    std::mt19937 random(7);
    std::uniform_real_distribution<float> x(-3.0f, 23.0f), y(0.0f, 23.0f);
    std::uniform_int_distribution<int> pixel(0, 19);
    int mustTouch = 0, mustMiss = 0;
    for (int trial = 0; trial < 20000; ++trial) {
        const int column = pixel(random), row = pixel(random);
        const point3f t[3] = {
            {x(random), y(random), 0}, {x(random), y(random), 0}, {x(random), y(random), 0}};
        double slope = 0;
        for (int i = 0; i < 3; ++i)
            slope = std::max(
                slope, std::fabs(double{t[(i + 1) % 3].x - t[i].x} / (t[(i + 1) % 3].y - t[i].y)));
        const double margin = InsideMargin(t, column + 0.5, row + 0.5);
        if (!(slope <= 3.0) || (margin < 1.0 && -margin <= kReach + slope))
            continue;
        ++(margin >= 1.0 ? mustTouch : mustMiss);
        _RegionRaster region = OnePixel(column, row);
        EXPECT_EQ(_TriangleTouchesRegion(region, t[0], t[1], t[2]), margin >= 1.0) << trial;
    }
    EXPECT_GT(std::min(mustTouch, mustMiss), 150);
    _RegionRaster pixel53 = OnePixel(5, 3), rowZero = OnePixel(0, 0);
    for (int column = 0; column < 20; ++column)
        rowZero.m_region->At(0, column) = true;  // the edges' extensions reach row 0 elsewhere
    EXPECT_TRUE(_TriangleTouchesRegion(pixel53, {5.2f, 3.1f, 0}, {5.4f, 3.2f, 0}, {5.3f, 3.3f, 0}));
    EXPECT_FALSE(
        _TriangleTouchesRegion(pixel53, {6.2f, 3.1f, 0}, {6.4f, 3.2f, 0}, {6.3f, 3.3f, 0}));
    EXPECT_TRUE(
        _TriangleTouchesRegion(rowZero, {2.2f, -0.5f, 0}, {2.8f, -0.4f, 0}, {2.5f, -0.3f, 0}));
}

}  // namespace
