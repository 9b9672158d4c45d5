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

/// A depth raster filled by hand: every cell in the region, every entry {−FLT_MAX, no owner}.
std::unique_ptr<_DepthRaster> MakeDepthRaster(std::int32_t width, std::int32_t height,
                                              std::size_t tolerance = 0) {
    auto raster = std::make_unique<_DepthRaster>();
    raster->m_depthTolerance = tolerance;
    raster->m_width = width, raster->m_height = height;
    raster->m_region = std::make_unique<PixelGrid>(width, height, 1.0, true);
    raster->m_depth = std::make_unique<_DepthEntry[]>(static_cast<std::size_t>(width) * height);
    std::fill_n(raster->m_depth.get(), std::size_t(width) * height, _DepthEntry{-FLT_MAX, {}});
    return raster;
}

class DepthRasterizer : public ::testing::Test {
  protected:
    _DepthEntry& At(int column, int row) { return raster->m_depth[row * raster->m_width + column]; }
    std::vector<std::pair<int, int>> CellsWithDepth(float depth) {  // (column, row), row-major
        std::vector<std::pair<int, int>> cells;
        for (int row = 0; row < raster->m_height; ++row)
            for (int column = 0; column < raster->m_width; ++column)
                if (At(column, row).depth == depth)
                    cells.emplace_back(column, row);
        return cells;
    }
    /// Draws as `owner` and notes its coverage in its flag byte, as the picker does.
    void Draw(point3f a, point3f b, point3f c, std::uint32_t owner = kNoOwner) {
        if (_RasterizeTriangleDepth(*raster, a, b, c, owner) && owner != kNoOwner)
            flags[owner] |= kCoveredFlag;
    }
    void Finalize() { _FinalizeDepthRaster(*raster, flags); }

    std::unique_ptr<_DepthRaster> raster = MakeDepthRaster(16, 12);
    std::uint8_t flags[4] = {};  // by owner number
};

constexpr std::uint32_t kFirst = 1, kSecond = 2;

// Ties keep the triangle drawn first; a nearer triangle takes the pixel in either order; a
// hidden one is covered but not visible.
TEST_F(DepthRasterizer, DepthTestAndFinalizedFlags) {
    Draw({1, 1, 5}, {10, 2, 5}, {3, 9, 5}, kFirst);
    Draw({1, 1, 5}, {10, 2, 5}, {3, 9, 5}, kSecond);
    EXPECT_EQ(At(4, 4).owner, kFirst);
    Finalize();
    EXPECT_EQ(flags[kFirst], kCoveredFlag | kVisibleFlag);
    EXPECT_EQ(flags[kSecond], kCoveredFlag);
    EXPECT_EQ(flags[kNoOwner], 0);
    for (bool behindFirst : {false, true}) {
        SCOPED_TRACE(behindFirst);
        raster = MakeDepthRaster(16, 12);
        std::fill(std::begin(flags), std::end(flags), 0);
        if (behindFirst)
            Draw({1, 1, 2}, {6, 1, 2}, {1, 6, 2}, kSecond);
        Draw({0, 0, 9}, {15, 0, 9}, {0, 11, 9}, kFirst);
        if (!behindFirst)
            Draw({1, 1, 2}, {6, 1, 2}, {1, 6, 2}, kSecond);
        EXPECT_EQ(At(2, 2).owner, kFirst);
        Finalize();
        EXPECT_EQ(flags[kSecond], kCoveredFlag);
        EXPECT_EQ(flags[kFirst], kCoveredFlag | kVisibleFlag);
    }
}

TEST_F(DepthRasterizer, FinalizeTurnsRegionPixelsIntoDepthMinusTolerance) {
    raster = MakeDepthRaster(16, 12, 3);
    raster->m_region->At(3, 4) = false;
    Draw({0, 0, 10}, {15, 0, 10}, {0, 11, 10}, kFirst);
    EXPECT_EQ(At(4, 3).depth, -FLT_MAX);  // outside the region: not drawn
    Finalize();
    EXPECT_TRUE(raster->m_finalized);
    EXPECT_EQ(At(4, 3).owner, kNoOwner);  // nor turned into a threshold
    EXPECT_EQ(At(2, 2).threshold, 7.0f);
    EXPECT_EQ(At(15, 11).threshold, -FLT_MAX);  // never drawn
}

TEST_F(DepthRasterizer, TrianglesBelowRowZeroOrPastTheLastRowCentreDrawNothing) {
    Draw({1, -5, 3}, {9, -0.2f, 3}, {4, -3, 3}, kFirst);
    Draw({1, 11.5f, 3}, {9, 11.7f, 3}, {4, 20, 3}, kFirst);
    Draw({1, 11.6f, 3}, {9, 11.6f, 3}, {4, 11.9f, 3}, kFirst);
    EXPECT_TRUE(CellsWithDepth(3.0f).empty());
    EXPECT_EQ(flags[kFirst], 0);
    Draw({1, 11.4f, 3}, {9, 11.4f, 3}, {4, 11.9f, 3}, kFirst);  // starts just above the centre
    EXPECT_FALSE(CellsWithDepth(3.0f).empty());
}

TEST_F(DepthRasterizer, SliverRowsCoverOneColumnEach) {
    // The left boundary is sampled from L's own y on the short bottom edge, so in rows 2 and 3
    // it lies right of the right boundary: each of those rows covers only trunc(xRight).
    Draw({0.5f, 0.0f, 4}, {3.0f, 2.9f, 4}, {3.2f, 3.0f, 4});
    EXPECT_EQ(CellsWithDepth(4.0f),
              (std::vector<std::pair<int, int>>{{0, 0}, {1, 1}, {2, 2}, {3, 3}}));
}

TEST_F(DepthRasterizer, SpanLeftOfTheGridCarriesItsDepthToColumnZero) {
    // Depth grows by 1 per column from x = −4, so column 0 starts 4 nearer.
    Draw({-4, 0, 0}, {12, 0, 16}, {-4, 11.9f, 0});
    EXPECT_FLOAT_EQ(At(0, 0).depth, 4.0f);
    EXPECT_FLOAT_EQ(At(5, 0).depth, 9.0f);
}

class VisibilityTest : public DepthRasterizer {
  protected:
    /// A flat front at depth 10 over the whole grid, finalized.
    void FlatFront() {
        Draw({-1, -1, 10}, {40, -1, 10}, {-1, 40, 10});
        Finalize();
    }
    bool Visible(point3f a, point3f b, point3f c) {
        return _TestTriangleVisibility(*raster, a, b, c);
    }
};

TEST_F(VisibilityTest, VertexAtTheThresholdIsVisibleSpanPixelIsNotToleranceLetsThrough) {
    FlatFront();
    EXPECT_TRUE(Visible({5.5f, 5.5f, 10}, {30, 5, 3}, {30, 30, 3}));
    EXPECT_FALSE(Visible({5.5f, 5.5f, 9.99f}, {30, 5, 3}, {30, 30, 3}));
    // With every vertex off the grid only the span scan decides.
    EXPECT_FALSE(Visible({-5, -5, 10}, {60, -5, 10}, {-5, 60, 10}));
    EXPECT_TRUE(Visible({-5, -5, 10.01f}, {60, -5, 10.01f}, {-5, 60, 10.01f}));
    raster = MakeDepthRaster(16, 12, 2);
    FlatFront();
    EXPECT_TRUE(Visible({-5, -5, 8.5f}, {60, -5, 8.5f}, {-5, 60, 8.5f}));
    EXPECT_FALSE(Visible({-5, -5, 7.5f}, {60, -5, 7.5f}, {-5, 60, 7.5f}));
}

TEST_F(VisibilityTest, ThreeVerticesBehindAreHiddenWithoutScanning) {
    // Only the vertex pixels were drawn; the interior keeps threshold −FLT_MAX, which any
    // scanned pixel would pass.
    for (auto [column, row] : {std::pair{1, 1}, {10, 1}, {1, 10}})
        At(column, row).depth = 10;
    Finalize();
    EXPECT_FALSE(Visible({1.5f, 1.5f, 5}, {10.5f, 1.5f, 5}, {1.5f, 10.5f, 5}));
    // One vertex off the grid: the scan runs and finds the open interior.
    EXPECT_TRUE(Visible({1.5f, 1.5f, 5}, {10.5f, 1.5f, 5}, {1.5f, 30.0f, 5}));
}

// ---- the row scan against span records ---------------------------------------------------

/// The edge walk written into span records, as the rasterizer's rules state it: from p's own
/// y (or from y = 0 extrapolated), to q's row clamped to the last row; nothing when p is at or
/// past the last row's centre or, with depth, when q lies below row 0.
RowRange RecordEdge(std::vector<_DepthSpan>& spans, bool left, const point3f& p, const point3f& q) {
    const std::int32_t height = static_cast<std::int32_t>(spans.size());
    const float dx = (q.x - p.x) / (q.y - p.y), dz = (q.z - p.z) / (q.y - p.y);
    const float limit = static_cast<float>(height - 0.5);
    if (p.y >= limit || q.y < 0.0f)
        return {};
    const bool below = p.y < 0.0f;
    float x = below ? p.x - dx * p.y : p.x, z = below ? p.z - dz * p.y : p.z;
    const float endY = q.y >= limit ? static_cast<float>(height - 1) : q.y;
    const RowRange rows{std::max(TruncateToInt32(below ? 0.0f : p.y), 0),
                        std::min(TruncateToInt32(endY), height - 1)};
    for (std::int32_t row = rows.first; row <= rows.last; ++row, x += dx, z += dz)
        (left ? spans[row].xLeft : spans[row].xRight) = x,
                                   (left ? spans[row].zLeft : spans[row].zRight) = z;
    return rows;
}

/// The rows of a triangle whose two halves were written, after its three edge walks.
RowRange RecordTriangle(std::vector<_DepthSpan>& spans, point3f a, point3f b, point3f c) {
    const detail::TriangleFrame f = detail::SetUpTriangle(a, b, c);
    const auto hull = [](RowRange u, RowRange v) {
        return u.Empty()   ? v
               : v.Empty() ? u
                           : RowRange{std::min(u.first, v.first), std::max(u.last, v.last)};
    };
    RowRange left = RecordEdge(spans, true, *f.top, *f.left);
    RowRange right = RecordEdge(spans, false, *f.top, *f.right);
    const bool leftEndsFirst = f.right->y > f.left->y;
    if (leftEndsFirst)
        left = hull(left, RecordEdge(spans, true, *f.left, *f.right));
    else
        right = hull(right, RecordEdge(spans, false, *f.right, *f.left));
    const std::int32_t top = TruncateToInt32(f.top->y);
    const std::int32_t bottom = TruncateToInt32(leftEndsFirst ? f.right->y : f.left->y);
    if (bottom < top || bottom < 0 || top >= static_cast<std::int32_t>(spans.size()))
        return {};
    const RowRange rows{std::max(top, 0), std::min(bottom, std::int32_t(spans.size()) - 1)};
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
                EXPECT_EQ(row, expected) << "trial " << trial;
                EXPECT_EQ(0, std::memcmp(&span, &records[row], sizeof span))
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
    constexpr std::int32_t kWidth = 9;
    std::mt19937 random(3);
    std::uniform_int_distribution<int> quarter(-8, 4 * kWidth + 8);
    std::uniform_real_distribution<float> depth(-50.0f, 50.0f);
    int checked = 0;
    for (int trial = 0; trial < 20000; ++trial) {
        const _DepthSpan span{quarter(random) / 4.0f,
                              trial % 97 == 0 ? -0.0f : quarter(random) / 4.0f, depth(random),
                              depth(random)};
        detail::RowColumns columns;
        if (!detail::ClampDepthRow(span, detail::GridWidth(kWidth), columns) || columns.Count() < 2)
            continue;
        ++checked;
        const float expected = detail::DepthStep(span),
                    step = detail::RowDepthStep(span, columns, detail::GridWidth(kWidth));
        EXPECT_EQ(0, std::memcmp(&expected, &step, sizeof step)) << "trial " << trial;
    }
    EXPECT_GT(checked, 5000);
}

// ---- region test -------------------------------------------------------------------------

_RegionRaster RandomRegion(std::int32_t width, std::int32_t height, double density, unsigned seed) {
    _RegionRaster raster;
    raster.m_width = width, raster.m_height = height;
    raster.m_region = std::make_shared<PixelGrid>(width, height, 1.0, false);
    std::mt19937 random(seed);
    std::bernoulli_distribution set(density);
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column)
            raster.m_region->At(row, column) = set(random);
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

TEST(TriangleTouchesRegion, AgreesWithPixelCentresOnRandomTriangles) {
    constexpr int kWidth = 40, kHeight = 30;
    // The scan samples each boundary once per row, up to a row away from the pixel centre:
    // a region pixel farther than this from the triangle (plus the slope's overshoot) is
    // never reached.
    constexpr double kReach = 2.0;
    _RegionRaster region = RandomRegion(kWidth, kHeight, 0.05, 7);
    std::mt19937 random(11);
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
        for (int row = 0; row < kHeight; ++row) {
            for (int column = 0; column < kWidth; ++column) {
                if (!region.m_region->At(row, column))
                    continue;
                const double margin = InsideMargin(t, column + 0.5, row + 0.5);
                deepest = std::max(deepest, margin);
                nearest = std::min(nearest, -margin);
            }
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
    _RegionRaster region = RandomRegion(8, 8, 0.0, 1);
    region.m_region->At(3, 5) = true;  // row 3, column 5
    const auto touches = [&](point3f a, point3f b, point3f c) {
        return _TriangleTouchesRegion(region, a, b, c);
    };
    EXPECT_TRUE(touches({5.2f, 3.1f, 0}, {5.4f, 3.2f, 0}, {5.3f, 3.3f, 0}));
    EXPECT_FALSE(touches({6.2f, 3.1f, 0}, {6.4f, 3.2f, 0}, {6.3f, 3.3f, 0}));
    // Unlike the depth walk, the region walk clamps an edge ending below row 0 to row 0.
    EXPECT_FALSE(touches({2.2f, -0.5f, 0}, {2.8f, -0.4f, 0}, {2.5f, -0.3f, 0}));
    for (int column = 0; column < 8; ++column)
        region.m_region->At(0, column) = true;
    EXPECT_TRUE(touches({2.2f, -0.5f, 0}, {2.8f, -0.4f, 0}, {2.5f, -0.3f, 0}));
}

}  // namespace
