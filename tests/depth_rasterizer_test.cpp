#include "mark_polygon/depth_rasterizer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include <velpick/pixel_grid.h>
#include "mark_polygon/region_test.h"

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
    for (std::size_t i = 0; i < static_cast<std::size_t>(width) * height; ++i)
        raster->m_depth[i] = {-FLT_MAX, {kNoOwner}};
    raster->m_rowSpans = std::make_unique<_DepthSpan[]>(height);
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

TEST_F(DepthRasterizer, EqualDepthKeepsTheTriangleDrawnFirst) {
    Draw({1, 1, 5}, {10, 2, 5}, {3, 9, 5}, kFirst);
    Draw({1, 1, 5}, {10, 2, 5}, {3, 9, 5}, kSecond);
    EXPECT_EQ(At(4, 4).owner, kFirst);
    Finalize();
    EXPECT_EQ(flags[kFirst], kCoveredFlag | kVisibleFlag);
    EXPECT_EQ(flags[kSecond], kCoveredFlag);
    EXPECT_EQ(flags[kNoOwner], 0);
}

TEST_F(DepthRasterizer, HiddenTriangleIsCoveredButNotVisibleInEitherOrder) {
    for (bool behindFirst : {false, true}) {
        SCOPED_TRACE(behindFirst);
        raster = MakeDepthRaster(16, 12);
        std::fill(std::begin(flags), std::end(flags), 0);
        const std::uint32_t nearer = kFirst, behind = kSecond;
        if (behindFirst)
            Draw({1, 1, 2}, {6, 1, 2}, {1, 6, 2}, behind);
        Draw({0, 0, 9}, {15, 0, 9}, {0, 11, 9}, nearer);
        if (!behindFirst)
            Draw({1, 1, 2}, {6, 1, 2}, {1, 6, 2}, behind);
        EXPECT_EQ(flags[behind], kCoveredFlag);
        EXPECT_EQ(At(2, 2).depth, 9.0f);
        EXPECT_EQ(At(2, 2).owner, nearer);  // the nearer triangle replaces the owner it beats
        Finalize();
        EXPECT_EQ(flags[behind], kCoveredFlag);
        EXPECT_EQ(flags[nearer], kCoveredFlag | kVisibleFlag);
    }
}

TEST_F(DepthRasterizer, PixelsOutsideTheRegionAreNeitherDrawnNorFinalized) {
    raster->m_region->At(3, 4) = false;
    Draw({0, 0, 9}, {15, 0, 9}, {0, 11, 9}, kFirst);
    EXPECT_EQ(At(4, 3).depth, -FLT_MAX);
    Finalize();
    EXPECT_EQ(At(4, 3).owner, kNoOwner);  // not turned into a threshold
    EXPECT_EQ(At(2, 2).threshold, 9.0f);
}

TEST_F(DepthRasterizer, ThresholdIsDepthMinusTolerance) {
    raster = MakeDepthRaster(8, 8, 3);
    Draw({0, 0, 10}, {7.9f, 0, 10}, {0, 7.9f, 10});
    Finalize();
    EXPECT_TRUE(raster->m_finalized);
    EXPECT_EQ(At(1, 1).threshold, 7.0f);
    EXPECT_EQ(At(7, 7).threshold, -FLT_MAX);  // never drawn
}

TEST_F(DepthRasterizer, TrianglesBelowRowZeroOrPastTheLastRowWriteNothing) {
    const _DepthSpan sentinel{-7, -7, -7, -7};
    for (int row = 0; row < raster->m_height; ++row)
        raster->m_rowSpans[row] = sentinel;
    Draw({1, -5, 3}, {9, -0.2f, 3}, {4, -3, 3}, kFirst);
    Draw({1, 11.5f, 3}, {9, 11.7f, 3}, {4, 20, 3}, kFirst);
    Draw({1, 11.6f, 3}, {9, 11.6f, 3}, {4, 11.9f, 3}, kFirst);
    for (int row = 0; row < raster->m_height; ++row)
        EXPECT_EQ(raster->m_rowSpans[row].xLeft, -7.0f) << row;
    EXPECT_TRUE(CellsWithDepth(3.0f).empty());
    EXPECT_EQ(flags[kFirst], 0);
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
    /// A flat front at depth 10 over the whole grid, finalized with tolerance 0.
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

// ---- region test ----------------------------------------------------------------------

struct RegionFixture {
    RegionFixture(std::int32_t width, std::int32_t height, double density, unsigned seed) {
        raster.m_width = width, raster.m_height = height;
        raster.m_region = std::make_shared<PixelGrid>(width, height, 1.0, false);
        raster.m_rowSpans = std::make_unique<_RegionSpan[]>(height);
        std::mt19937 random(seed);
        std::bernoulli_distribution set(density);
        for (int row = 0; row < height; ++row)
            for (int column = 0; column < width; ++column)
                raster.m_region->At(row, column) = set(random);
    }
    _RegionRaster raster;
};

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

double MaxAbsSlope(const point3f (&t)[3]) {
    double slope = 0;
    for (int i = 0; i < 3; ++i) {
        const point3f &p = t[i], &q = t[(i + 1) % 3];
        slope = std::max(slope, std::fabs(double{q.x - p.x} / (q.y - p.y)));
    }
    return slope;
}

// The register walk must reproduce the span records bit for bit, including the row where the
// bottom edge takes over, equal rows and horizontal edges (coordinates on a quarter grid make
// those frequent), and it must leave triangles touching the first or last row to the records.
TEST(ScanTriangleRows, RowsAndBoundariesEqualTheSpanRecords) {
    constexpr std::int32_t kHeight = 12;
    std::mt19937 random(5);
    std::uniform_int_distribution<int> quarter(-8, 4 * kHeight + 8);
    const auto corner = [&] {
        return point3f{quarter(random) / 4.0f, quarter(random) / 4.0f, quarter(random) / 4.0f};
    };
    std::vector<_DepthSpan> records(kHeight), scratch(kHeight);
    for (int trial = 0; trial < 20000; ++trial) {
        const point3f a = corner(), b = corner(), c = corner();
        const detail::RowRange rows = detail::WalkTriangle(records.data(), kHeight, a, b, c);
        std::int32_t expected = rows.first;
        detail::ScanTriangleRows(scratch.data(), kHeight, a, b, c,
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

TEST(TriangleTouchesRegion, AgreesWithPixelCentresOnRandomTriangles) {
    constexpr int kWidth = 40, kHeight = 30;
    // The scan samples each boundary once per row, up to a row away from the pixel centre:
    // a region pixel farther than this from the triangle (plus the slope's overshoot) is
    // never reached.
    constexpr double kReach = 2.0;
    RegionFixture region(kWidth, kHeight, 0.05, 7);
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
        const double slope = MaxAbsSlope(t);
        if (!(slope <= 3.0))
            continue;
        double nearest = std::numeric_limits<double>::max(), deepest = -nearest;
        for (int row = 0; row < kHeight; ++row) {
            for (int column = 0; column < kWidth; ++column) {
                if (!region.raster.m_region->At(row, column))
                    continue;
                const double margin = InsideMargin(t, column + 0.5, row + 0.5);
                deepest = std::max(deepest, margin);
                nearest = std::min(nearest, -margin);
            }
        }
        const bool touches = _TriangleTouchesRegion(region.raster, t[0], t[1], t[2]);
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
    RegionFixture region(8, 8, 0.0, 1);
    region.raster.m_region->At(3, 5) = true;  // row 3, column 5
    const auto touches = [&](point3f a, point3f b, point3f c) {
        return _TriangleTouchesRegion(region.raster, a, b, c);
    };
    EXPECT_TRUE(touches({5.2f, 3.1f, 0}, {5.4f, 3.2f, 0}, {5.3f, 3.3f, 0}));
    EXPECT_FALSE(touches({6.2f, 3.1f, 0}, {6.4f, 3.2f, 0}, {6.3f, 3.3f, 0}));
    // Unlike the depth walk, the region walk clamps an edge ending below row 0 to row 0.
    EXPECT_FALSE(touches({2.2f, -0.5f, 0}, {2.8f, -0.4f, 0}, {2.5f, -0.3f, 0}));
    for (int column = 0; column < 8; ++column)
        region.raster.m_region->At(0, column) = true;
    EXPECT_TRUE(touches({2.2f, -0.5f, 0}, {2.8f, -0.4f, 0}, {2.5f, -0.3f, 0}));
}

}  // namespace
