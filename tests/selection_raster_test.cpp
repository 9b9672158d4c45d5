#include "polygon_marking/selection_raster.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "polygon_marking/brush_footprint.h"

namespace {

using namespace AU_MarkOperations::PolygonMarking;
using VelSDK::Math::point2d;
using VelSDK::Math::point2i;

std::vector<bool> Cells(const PixelGrid& grid) {
    const bool* data = grid;
    return std::vector<bool>(data, data + std::size_t(grid.GetWidth()) * grid.GetHeight());
}

// Set columns of one row as [first, last]; {1, 0} when the row is empty.
std::pair<int, int> RowExtent(PixelGrid& grid, int row) {
    int first = grid.GetWidth(), last = -1;
    for (int x = 0; x < grid.GetWidth(); ++x)
        if (grid.At(row, x))
            first = std::min(first, x), last = x;
    return first <= last ? std::make_pair(first, last) : std::make_pair(1, 0);
}

int CountSet(const PixelGrid& grid) {
    const std::vector<bool> cells = Cells(grid);
    return static_cast<int>(std::count(cells.begin(), cells.end(), true));
}

// The required brush footprint, half-widths for |t| = 0 … r.
const std::vector<std::vector<int>> kDiscTable = {
    {0},
    {1, 0},
    {2, 1, 0},
    {3, 3, 2, 1},
    {4, 4, 3, 2, 1},
    {5, 5, 5, 4, 3, 1},
    {6, 6, 6, 5, 4, 3, 1},
    {7, 7, 7, 6, 6, 5, 4, 1},
    {8, 8, 8, 7, 7, 6, 5, 4, 1},
    {9, 9, 9, 9, 8, 8, 7, 6, 4, 2},
    {10, 10, 10, 10, 9, 9, 8, 7, 6, 4, 2},
};

TEST(DiscFootprint, StampedDiscsMatchTheBrushTable) {
    for (int r = 0; r <= 10; ++r) {
        PixelGrid grid(32, 32, 1.0, false);
        StampDisc(grid, DiscHalfWidths(r), point2i{15, 16});
        for (int row = 0; row < 32; ++row) {
            const int t = std::abs(row - 16);
            const auto expected = t <= r
                                      ? std::make_pair(15 - kDiscTable[r][t], 15 + kDiscTable[r][t])
                                      : std::make_pair(1, 0);
            EXPECT_EQ(RowExtent(grid, row), expected) << "r " << r << " row " << row;
        }
        int area = 0;
        for (int t = -r; t <= r; ++t)
            area += 2 * kDiscTable[r][std::abs(t)] + 1;
        EXPECT_EQ(CountSet(grid), area) << "r " << r;
    }
}

TEST(DiscFootprint, LargeDiscsNarrowMonotonicallyToTheirEdge) {
    for (int r : {11, 37, 100, 257}) {
        const std::vector<std::int32_t> w = DiscHalfWidths(r);
        ASSERT_EQ(w.size(), std::size_t(r + 1));
        EXPECT_EQ(w[0], r);
        for (int t = 1; t <= r; ++t) {
            EXPECT_LE(w[t], w[t - 1]) << "r " << r << " t " << t;
            EXPECT_LE(w[t] * w[t] + t * t, (r + 1) * (r + 1)) << "r " << r << " t " << t;
        }
    }
}

// Brute-force inside test of a convex quadrilateral given in boundary order, widened by
// `margin`: every edge's outward distance of p is at most margin.
bool InsideConvex(const std::array<point2d, 4>& quad, point2d p, double margin) {
    double orientation = 0;
    for (int i = 0; i < 4; ++i) {
        const point2d a = quad[i], b = quad[(i + 1) % 4];
        orientation += a.x * b.y - b.x * a.y;
    }
    for (int i = 0; i < 4; ++i) {
        const point2d a = quad[i], b = quad[(i + 1) % 4];
        const double length = std::hypot(b.x - a.x, b.y - a.y);
        if (length == 0)
            continue;
        const double cross = (b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x);
        const double inward = (orientation > 0 ? cross : -cross) / length;
        if (inward < -margin)
            return false;
    }
    return true;
}

class StrokeTest : public ::testing::Test {
  protected:
    static constexpr int kSize = 64;
    // Cell positions within this distance of the band's boundary may go either way.
    static constexpr double kBoundaryMargin = 1.0;

    PixelGrid grid{kSize, kSize, 1.0, false};

    // The band's corners: each endpoint offset perpendicular to the direction lengthened by one
    // pixel per axis, the offset scaled to the radius in single precision.
    static std::array<point2d, 4> Band(point2i a, point2i b, int r) {
        const int ex = b.x - a.x >= 1 ? b.x - a.x + 1 : b.x - a.x - 1;
        const int ey = b.y - a.y >= 1 ? b.y - a.y + 1 : b.y - a.y - 1;
        const float s = float(r) / std::sqrt(float(ex * ex + ey * ey));
        const int ox = int(ex > 0 ? ex * s + 0.5 : ex * s - 0.5);
        const int oy = int(ey > 0 ? ey * s + 0.5 : ey * s - 0.5);
        return {point2d{double(a.x + oy), double(a.y - ox)},
                point2d{double(b.x + oy), double(b.y - ox)},
                point2d{double(b.x - oy), double(b.y + ox)},
                point2d{double(a.x - oy), double(a.y + ox)}};
    }
};

TEST_F(StrokeTest, OffsetComesFromTheLengthenedDirection) {
    // dx = 3, dy = 4 at radius 7: (ex, ey) = (4, 5) gives the offset (4, 5); the unlengthened
    // direction would give (4, 6).
    DrawStroke(grid, point2i{20, 20}, point2i{23, 24}, 7);
    std::array<int, 4> box{kSize, -1, kSize, -1};  // rows low, high; columns left, right
    for (int row = 0; row < kSize; ++row)
        for (int x = 0; x < kSize; ++x)
            if (grid.At(row, x))
                box = {std::min(box[0], row), std::max(box[1], row), std::min(box[2], x),
                       std::max(box[3], x)};
    EXPECT_EQ(box, (std::array<int, 4>{16, 28, 15, 28}));
}

TEST_F(StrokeTest, AxisParallelStrokesAreBlocksClampedToTheGrid) {
    DrawStroke(grid, point2i{10, 30}, point2i{10, 20}, 3);
    DrawStroke(grid, point2i{40, 50}, point2i{30, 50}, 2);
    DrawStroke(grid, point2i{60, 1}, point2i{70, 1}, 1);  // right end clamped to the last column
    for (int row = 0; row < kSize; ++row)
        for (int x = 0; x < kSize; ++x) {
            const bool vertical = row >= 20 && row <= 30 && x >= 7 && x <= 13;
            const bool horizontal = row >= 48 && row <= 52 && x >= 30 && x <= 40;
            const bool clamped = row <= 2 && x >= 60;
            EXPECT_EQ(grid.At(row, x), vertical || horizontal || clamped) << row << "," << x;
        }
}

TEST_F(StrokeTest, RandomStrokesFillTheirBandRowByRow) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> coordinate(16, 47), radius(0, 12);
    for (int trial = 0; trial < 300; ++trial) {
        PixelGrid stroke(kSize, kSize, 1.0, false);
        const point2i a{coordinate(random), coordinate(random)},
            b{coordinate(random), coordinate(random)};
        const int r = radius(random);
        if (a.x == b.x || a.y == b.y)
            continue;
        DrawStroke(stroke, a, b, r);
        const std::array<point2d, 4> band = Band(a, b, r);
        const auto [lowY, highY] = std::minmax({band[0].y, band[1].y, band[2].y, band[3].y});
        for (int row = 0; row < kSize; ++row) {
            const auto [first, last] = RowExtent(stroke, row);
            EXPECT_EQ(first <= last, row >= lowY && row <= highY) << trial << " row " << row;
            for (int x = 0; x < kSize; ++x) {
                const point2d cell{double(x), double(row)};
                const bool set = stroke.At(row, x);
                // Rows are single runs; the run holds the band's inner cells and stays within
                // a pixel of it.
                EXPECT_EQ(set, x >= first && x <= last) << trial << " row " << row;
                EXPECT_EQ(InsideConvex(band, cell, set ? kBoundaryMargin : -kBoundaryMargin), set)
                    << trial;
            }
        }
    }
}

TEST(BrushPath, IsDiscsAtTheTruncatedPointsJoinedByStrokes) {
    struct Case {
        const char* name;
        std::vector<point2d> path;
        int radius;
    };
    for (const Case& c : {Case{"one point", {{20.9, 18.6}}, 6},
                          Case{"repeated point draws no stroke", {{20.2, 18.0}, {20.7, 18.9}}, 6},
                          Case{"three points", {{8, 8}, {30, 12}, {25, 31}}, 4}}) {
        SCOPED_TRACE(c.name);
        PixelGrid painted(40, 40, 1.0, false), expected(40, 40, 1.0, false);
        PaintBrushPath(painted, c.path.data(), c.path.size(), c.radius);
        for (std::size_t i = 0; i < c.path.size(); ++i) {
            const point2i p{int(c.path[i].x), int(c.path[i].y)};
            StampDisc(expected, DiscHalfWidths(c.radius), p);
            if (i > 0) {
                const point2i q{int(c.path[i - 1].x), int(c.path[i - 1].y)};
                if (!(p.x == q.x && p.y == q.y))
                    DrawStroke(expected, q, p, c.radius);
            }
        }
        EXPECT_EQ(Cells(painted), Cells(expected));
        EXPECT_GT(CountSet(painted), 0);
    }
}

class RasterBuildTest : public ::testing::Test {
  protected:
    const std::vector<point2d> polygon = {{2.5, 1.5}, {17.5, 4.5}, {9.5, 13.5}};
    const std::vector<point2d> path = {{6, 6}, {14, 9}};
};

TEST_F(RasterBuildTest, RegionsAreTheScanConvertedPolygonOrPaintedPathAndDepthStartsFarthest) {
    _DepthRaster depth, brushDepth;
    _RegionRaster region, brushRegion;
    ASSERT_TRUE(_BuildPolygonDepthRaster(depth, 20, 15, polygon.data(), polygon.size()));
    ASSERT_TRUE(_BuildPolygonRegionRaster(region, 20, 15, polygon.data(), polygon.size()));
    ASSERT_TRUE(_BuildBrushDepthRaster(brushDepth, 24, 18, path.data(), path.size(), 3));
    ASSERT_TRUE(_BuildBrushRegionRaster(brushRegion, 24, 18, path.data(), path.size(), 3));
    ASSERT_TRUE(depth.m_depth && depth.m_rowSpans && region.m_rowSpans && brushRegion.m_rowSpans);
    EXPECT_EQ(depth.m_width, 20);
    EXPECT_EQ(depth.m_height, 15);
    for (int cell = 0; cell < 20 * 15; ++cell) {
        std::uint32_t bits;
        std::memcpy(&bits, &depth.m_depth[cell].depth, sizeof bits);
        EXPECT_EQ(bits, 0xFF7FFFFFu);  // −FLT_MAX
        EXPECT_EQ(depth.m_depth[cell].owner, kNoOwner);
    }
    const PixelGrid filled(polygon, 20, 15, 1.0, false);
    PixelGrid painted(24, 18, 1.0, false);
    PaintBrushPath(painted, path.data(), path.size(), 3);
    EXPECT_GT(CountSet(filled), 0);
    EXPECT_EQ(Cells(*depth.m_region), Cells(filled));
    EXPECT_EQ(Cells(*region.m_region), Cells(filled));
    EXPECT_EQ(Cells(*brushDepth.m_region), Cells(painted));
    EXPECT_EQ(Cells(*brushRegion.m_region), Cells(painted));
}

TEST_F(RasterBuildTest, SizesNoGridCanHoldAreRefusedWithBuffersReleased) {
    _DepthRaster depth;
    _RegionRaster region;
    ASSERT_TRUE(_BuildPolygonDepthRaster(depth, 20, 15, polygon.data(), polygon.size()));
    ASSERT_TRUE(_BuildBrushRegionRaster(region, 24, 18, path.data(), path.size(), 3));

    EXPECT_FALSE(_BuildBrushDepthRaster(depth, 65536, 32768, path.data(), path.size(), 3));
    EXPECT_FALSE(depth.m_depth || depth.m_region || depth.m_rowSpans);

    EXPECT_FALSE(_BuildPolygonRegionRaster(region, 65536, 32768, polygon.data(), polygon.size()));
    EXPECT_FALSE(region.m_region || region.m_rowSpans);

    _RegionRaster other;
    EXPECT_FALSE(_BuildPolygonRegionRaster(other, 20, -1, polygon.data(), polygon.size()));
    EXPECT_FALSE(_BuildPolygonRegionRaster(other, 0x80000000u, 0, polygon.data(), 3));
    EXPECT_FALSE(other.m_region);
}

}  // namespace
