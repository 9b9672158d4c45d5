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
#include <vector>

#include <velpick/pixel_grid.h>

using namespace AU_MarkOperations::PolygonMarking;
using VelSDK::Math::point3f;

namespace {

constexpr std::uint32_t kFirst = 1, kSecond = 2;

/// A 16 × 12 depth raster filled by hand: every cell in the region, every entry
/// {−FLT_MAX, no owner}; triangles drawn with their owner number note their coverage in
/// `flags`, as the picker does.
class DepthRaster : public ::testing::Test {
  protected:
    void Reset(std::size_t tolerance = 0) {
        raster = std::make_unique<_DepthRaster>();
        raster->m_depthTolerance = tolerance;
        raster->m_width = 16, raster->m_height = 12;
        raster->m_region = std::make_unique<PixelGrid>(16, 12, 1.0, true);
        raster->m_depth = std::make_unique<_DepthEntry[]>(16 * 12);
        std::fill_n(raster->m_depth.get(), 16 * 12, _DepthEntry{-FLT_MAX, {}});
        std::fill(std::begin(flags), std::end(flags), 0);
    }
    _DepthEntry& At(int column, int row) { return raster->m_depth[row * 16 + column]; }
    void Draw(point3f a, point3f b, point3f c, std::uint32_t owner = kNoOwner) {
        if (_RasterizeTriangleDepth(*raster, a, b, c, owner) && owner != kNoOwner)
            flags[owner] |= kCoveredFlag;
    }
    void Finalize() { _FinalizeDepthRaster(*raster, flags); }
    bool Visible(point3f a, point3f b, point3f c) {
        return _TestTriangleVisibility(*raster, a, b, c);
    }

    std::unique_ptr<_DepthRaster> raster;
    std::uint8_t flags[3] = {};  // by owner number
};

// A pixel goes to the strictly nearer triangle in either drawing order, and of two at equal
// depth to the one drawn first; finalizing makes the owners visible, leaves the hidden one
// covered only, and turns region pixels (only those) into depth − tolerance.
TEST_F(DepthRaster, NearestFirstDrawnOwnsThePixelAndFinalizingSubtractsTheTolerance) {
    for (const int order : {0, 1, 2}) {
        SCOPED_TRACE(order);
        Reset(3);
        raster->m_region->At(3, 4) = false;  // row 3, column 4
        const point3f big[3] = {{0, 0, 9}, {15, 0, 9}, {0, 11, 9}};
        const point3f small[3] = {{1, 1, 2}, {6, 1, 2}, {1, 6, 2}};
        const point3f* second = order == 2 ? big : small;  // order 2: a tie
        if (order == 1)
            Draw(second[0], second[1], second[2], kSecond);
        Draw(big[0], big[1], big[2], kFirst);
        if (order != 1)
            Draw(second[0], second[1], second[2], kSecond);
        EXPECT_EQ(At(2, 2).owner, kFirst);
        EXPECT_EQ(At(4, 3).depth, -FLT_MAX);  // outside the region: not drawn
        Finalize();
        EXPECT_EQ(flags[kFirst], kCoveredFlag | kVisibleFlag);
        EXPECT_EQ(flags[kSecond], kCoveredFlag);
        EXPECT_EQ(flags[kNoOwner], 0);
        EXPECT_EQ(At(4, 3).owner, kNoOwner);  // nor turned into a threshold
        EXPECT_EQ(At(2, 2).threshold, 6.0f);
        EXPECT_EQ(At(15, 11).threshold, -FLT_MAX);  // never drawn
    }
}

TEST_F(DepthRaster, SliverRowsKeepOneColumnAndSpansLeftOfTheGridCarryTheirDepth) {
    Reset();
    // The left boundary is sampled from L's own y on the short bottom edge, so in rows 2 and 3
    // it lies right of the right boundary: each of those rows covers only trunc(xRight).
    Draw({0.5f, 0.0f, 4}, {3.0f, 2.9f, 4}, {3.2f, 3.0f, 4});
    for (int row = 0; row < 12; ++row)
        for (int column = 0; column < 16; ++column)
            EXPECT_EQ(At(column, row).depth == 4.0f, column == row && row < 4) << column << row;
    Reset();
    // Depth grows by 1 per column from x = −4, so column 0 starts 4 nearer.
    Draw({-4, 0, 0}, {12, 0, 16}, {-4, 11.9f, 0});
    EXPECT_FLOAT_EQ(At(0, 0).depth, 4.0f);
    EXPECT_FLOAT_EQ(At(5, 0).depth, 9.0f);
}

// A vertex in a region pixel passes at z ≥ threshold, a span pixel only at z > threshold;
// three vertices in region pixels that all fail hide the triangle without a scan.
TEST_F(DepthRaster, VisibilityAgainstTheThresholds) {
    for (const std::size_t tolerance : {0, 2}) {
        Reset(tolerance);
        Draw({-1, -1, 10}, {40, -1, 10}, {-1, 40, 10});
        Finalize();
        const float front = 10.0f - tolerance;
        EXPECT_TRUE(Visible({5.5f, 5.5f, front}, {30, 5, 3}, {30, 30, 3}));
        EXPECT_FALSE(Visible({5.5f, 5.5f, front - 0.01f}, {30, 5, 3}, {30, 30, 3}));
        EXPECT_FALSE(Visible({-5, -5, front}, {60, -5, front}, {-5, 60, front}));
        EXPECT_TRUE(Visible({-5, -5, front + 0.5f}, {60, -5, front + 0.5f}, {-5, 60, front}));
    }
    Reset();
    for (auto [column, row] : {std::pair{1, 1}, {10, 1}, {1, 10}})
        At(column, row).depth = 10;
    Finalize();  // the interior keeps threshold −FLT_MAX, which any scanned pixel passes
    EXPECT_FALSE(Visible({1.5f, 1.5f, 5}, {10.5f, 1.5f, 5}, {1.5f, 10.5f, 5}));
    EXPECT_TRUE(Visible({1.5f, 1.5f, 5}, {10.5f, 1.5f, 5}, {1.5f, 30.0f, 5}));
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
    constexpr std::int32_t kHeight = 12;
    std::mt19937 random(5);
    std::uniform_int_distribution<int> quarter(-8, 4 * kHeight + 8), split(0, kHeight);
    const auto corner = [&] {
        return point3f{quarter(random) / 4.0f, quarter(random) / 4.0f, quarter(random) / 4.0f};
    };
    std::vector<_DepthSpan> records(kHeight);
    for (int trial = 0; trial < 30000; ++trial) {
        const point3f a = corner(), b = corner(), c = corner();
        const std::int32_t cut = split(random);
        const RowRange band = trial % 3 == 0   ? AllRows(kHeight)
                              : trial % 3 == 1 ? RowRange{cut, kHeight - 1}
                                               : RowRange{0, cut - 1};
        const RowRange rows = Intersect(RecordTriangle(records, a, b, c), band);
        std::int32_t expected = rows.first;
        detail::ScanTriangleRows<true>(
            detail::RasterRows(kHeight), band, a, b, c,
            [&](std::int32_t row, const _DepthSpan& span) {
                EXPECT_TRUE(row == expected && !std::memcmp(&span, &records[row], sizeof span))
                    << "trial " << trial << " row " << row;
                ++expected;
                return false;
            });
        EXPECT_EQ(expected, std::max(rows.first, rows.last + 1)) << "trial " << trial;
    }
}

// Rows whose ends lie inside the grid take their depth step from the column count instead of
// two floors; it must be the same float, including ends on column borders and at −0.
TEST(ScanTriangleRows, ColumnCountStepEqualsTheFlooredStep) {
    const detail::GridWidth width(9);
    std::mt19937 random(3);
    std::uniform_int_distribution<int> quarter(-8, 4 * 9 + 8);
    std::uniform_real_distribution<float> depth(-50.0f, 50.0f);
    int checked = 0;
    for (int trial = 0; trial < 20000; ++trial) {
        const float xLeft = quarter(random) / 4.0f, xRight = quarter(random) / 4.0f;
        const _DepthSpan span{xLeft, trial % 97 ? xRight : -0.0f, depth(random), depth(random)};
        detail::RowColumns columns;
        if (!detail::ClampDepthRow(span, width, columns) || columns.Count() < 2)
            continue;
        const float expected = detail::DepthStep(span);
        const float step = detail::RowDepthStep(span, columns, width);
        EXPECT_EQ(0, std::memcmp(&expected, &step, sizeof step)) << "trial " << trial;
        ++checked;
    }
    EXPECT_GT(checked, 5000);
}

_RegionRaster EmptyRegion(std::int32_t width, std::int32_t height) {
    _RegionRaster raster;
    raster.m_width = width, raster.m_height = height;
    raster.m_region = std::make_shared<PixelGrid>(width, height, 1.0, false);
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
        const double dx = q.x - p.x, dy = q.y - p.y;
        const double edge = ((x - p.x) * dy - (y - p.y) * dx) / std::hypot(dx, dy);
        margin = std::min(margin, orientation > 0 ? -edge : edge);
    }
    return margin;
}

// Against the pixel centres of a random sparse region: a triangle with a region centre a pixel
// deep inside touches it; one whose nearest region centre lies beyond the scan's reach does not.
TEST(TriangleTouchesRegion, AgreesWithPixelCentresOnRandomTriangles) {
    constexpr int kWidth = 40, kHeight = 30;
    // The scan samples each boundary once per row, up to a row away from the pixel centre:
    // a region pixel farther than this from the triangle (plus the slope's overshoot) is
    // never reached.
    constexpr double kReach = 2.0;
    _RegionRaster region = EmptyRegion(kWidth, kHeight);
    std::mt19937 random(7);
    std::bernoulli_distribution set(0.05);
    for (int row = 0; row < kHeight; ++row)
        for (int column = 0; column < kWidth; ++column)
            region.m_region->At(row, column) = set(random);
    std::uniform_real_distribution<float> x(-5.0f, kWidth + 5.0f), y(0.0f, kHeight + 5.0f);
    std::uniform_real_distribution<float> offset(-7.0f, 7.0f);
    int mustTouch = 0, mustMiss = 0;
    for (int trial = 0; trial < 8000; ++trial) {
        const float cx = x(random), cy = y(random);
        const auto corner = [&] {
            return point3f{cx + offset(random), std::max(0.0f, cy + offset(random)), 0};
        };
        const point3f t[3] = {corner(), corner(), corner()};
        double slope = 0;
        for (int i = 0; i < 3; ++i)
            slope = std::max(
                slope, std::fabs(double{t[(i + 1) % 3].x - t[i].x} / (t[(i + 1) % 3].y - t[i].y)));
        if (!(slope <= 3.0))
            continue;
        double nearest = std::numeric_limits<double>::max(), deepest = -nearest;
        for (int row = 0; row < kHeight; ++row)
            for (int column = 0; column < kWidth; ++column)
                if (region.m_region->At(row, column)) {
                    const double margin = InsideMargin(t, column + 0.5, row + 0.5);
                    deepest = std::max(deepest, margin);
                    nearest = std::min(nearest, -margin);
                }
        const bool touches = _TriangleTouchesRegion(region, t[0], t[1], t[2]);
        if (deepest >= 1.0) {
            ++mustTouch;
            EXPECT_TRUE(touches) << "trial " << trial;
        } else if (nearest > kReach + slope) {
            ++mustMiss;
            EXPECT_FALSE(touches) << "trial " << trial;
        }
    }
    EXPECT_GT(mustTouch, 150);
    EXPECT_GT(mustMiss, 150);
}

TEST(TriangleTouchesRegion, SubPixelTrianglesAndEdgesBelowRowZeroStillTestTheirPixel) {
    _RegionRaster region = EmptyRegion(8, 8);
    region.m_region->At(3, 5) = true;  // row 3, column 5
    const auto touches = [&](point3f a, point3f b, point3f c) {
        return _TriangleTouchesRegion(region, a, b, c);
    };
    EXPECT_TRUE(touches({5.2f, 3.1f, 0}, {5.4f, 3.2f, 0}, {5.3f, 3.3f, 0}));
    EXPECT_FALSE(touches({6.2f, 3.1f, 0}, {6.4f, 3.2f, 0}, {6.3f, 3.3f, 0}));
    // Unlike the depth walk, the region walk clamps an edge ending below row 0 to row 0.
    EXPECT_FALSE(touches({2.2f, -0.5f, 0}, {2.8f, -0.4f, 0}, {2.5f, -0.3f, 0}));
    for (int column = 0; column < 8; ++column)
        region.m_region->At(0, column) = true;  // the edges' extensions reach row 0 elsewhere
    EXPECT_TRUE(touches({2.2f, -0.5f, 0}, {2.8f, -0.4f, 0}, {2.5f, -0.3f, 0}));
}

}  // namespace
