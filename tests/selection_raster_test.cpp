#include "polygon_marking/selection_raster.h"

#include <gtest/gtest.h>

#include <algorithm>
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
std::pair<int, int> RowExtent(const PixelGrid& grid, int row) {
    int first = grid.GetWidth(), last = -1;
    for (int x = 0; x < grid.GetWidth(); ++x)
        if (grid.At(row, x))
            first = std::min(first, x), last = x;
    return first <= last ? std::make_pair(first, last) : std::make_pair(1, 0);
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
            const int t = std::abs(row - 16), w = t <= r ? kDiscTable[r][t] : -1;
            EXPECT_EQ(RowExtent(grid, row),
                      w < 0 ? std::make_pair(1, 0) : std::make_pair(15 - w, 15 + w))
                << "r " << r << " row " << row;
        }
    }
}

// Brute-force inside test of a convex quadrilateral given in boundary order, widened by
// `margin`: every edge's outward distance of p is at most margin.
bool InsideConvex(const std::array<point2d, 4>& quad, point2d p, double margin) {
    double orientation = 0;
    for (int i = 0; i < 4; ++i)
        orientation += quad[i].x * quad[(i + 1) % 4].y - quad[(i + 1) % 4].x * quad[i].y;
    for (int i = 0; i < 4; ++i) {
        const point2d a = quad[i], b = quad[(i + 1) % 4];
        const double length = std::hypot(b.x - a.x, b.y - a.y);
        const double cross = (b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x);
        if (length > 0 && (orientation > 0 ? cross : -cross) / length < -margin)
            return false;
    }
    return true;
}

// The band's corners: each endpoint offset perpendicular to the direction lengthened by one
// pixel per axis, the offset scaled to the radius in single precision.
std::array<point2d, 4> Band(point2i a, point2i b, int r) {
    const int ex = b.x - a.x >= 1 ? b.x - a.x + 1 : b.x - a.x - 1;
    const int ey = b.y - a.y >= 1 ? b.y - a.y + 1 : b.y - a.y - 1;
    const float s = float(r) / std::sqrt(float(ex * ex + ey * ey));
    const int ox = int(ex > 0 ? ex * s + 0.5 : ex * s - 0.5);
    const int oy = int(ey > 0 ? ey * s + 0.5 : ey * s - 0.5);
    return {
        point2d{double(a.x + oy), double(a.y - ox)}, point2d{double(b.x + oy), double(b.y - ox)},
        point2d{double(b.x - oy), double(b.y + ox)}, point2d{double(a.x - oy), double(a.y + ox)}};
}

constexpr int kStrokeGrid = 64;
// Cell positions within this distance of the band's boundary may go either way.
constexpr double kBoundaryMargin = 1.0;

TEST(Stroke, RandomStrokesFillTheirBandRowByRow) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> coordinate(16, 47), radius(0, 12);
    for (int trial = 0; trial < 300; ++trial) {
        PixelGrid stroke(kStrokeGrid, kStrokeGrid, 1.0, false);
        const point2i a{coordinate(random), coordinate(random)},
            b{coordinate(random), coordinate(random)};
        const int r = radius(random);
        if (a.x == b.x || a.y == b.y)
            continue;
        DrawStroke(stroke, a, b, r);
        const std::array<point2d, 4> band = Band(a, b, r);
        const auto [lowY, highY] = std::minmax({band[0].y, band[1].y, band[2].y, band[3].y});
        for (int row = 0; row < kStrokeGrid; ++row) {
            const auto [first, last] = RowExtent(stroke, row);
            EXPECT_EQ(first <= last, row >= lowY && row <= highY) << trial << " row " << row;
            for (int x = 0; x < kStrokeGrid; ++x) {
                // Rows are single runs holding the band's inner cells, within a pixel of it.
                const bool set = stroke.At(row, x);
                EXPECT_EQ(set, x >= first && x <= last) << trial << " row " << row;
                EXPECT_EQ(InsideConvex(band, {double(x), double(row)},
                                       set ? kBoundaryMargin : -kBoundaryMargin),
                          set)
                    << trial;
            }
        }
    }
}

TEST(Stroke, ExactBoxesOfLengthenedAndAxisParallelStrokes) {
    struct Case {
        point2i from, to;
        int radius;
        std::array<int, 4> box;  // rows low, high; columns left, right
    };
    const Case cases[] = {
        // (3, 4) at radius 7: the lengthened (4, 5) gives the offset (4, 5), the unlengthened
        // direction would give (4, 6).
        {{20, 20}, {23, 24}, 7, {16, 28, 15, 28}},
        {{10, 30}, {10, 20}, 3, {20, 30, 7, 13}},
        {{40, 50}, {30, 50}, 2, {48, 52, 30, 40}},
        {{60, 1}, {70, 1}, 1, {0, 2, 60, kStrokeGrid - 1}},  // right end clamped to the grid
    };
    for (const Case& c : cases) {
        PixelGrid grid(kStrokeGrid, kStrokeGrid, 1.0, false);
        DrawStroke(grid, c.from, c.to, c.radius);
        std::array<int, 4> box{kStrokeGrid, -1, kStrokeGrid, -1};
        for (int row = 0; row < kStrokeGrid; ++row)
            for (int x = 0; x < kStrokeGrid; ++x)
                if (grid.At(row, x))
                    box = {std::min(box[0], row), std::max(box[1], row), std::min(box[2], x),
                           std::max(box[3], x)};
        EXPECT_EQ(box, c.box) << c.from.x << "," << c.from.y;
        const std::vector<bool> cells = Cells(grid);
        if (c.from.x == c.to.x || c.from.y == c.to.y) {  // axis-parallel strokes: full blocks
            EXPECT_EQ(std::count(cells.begin(), cells.end(), true),
                      (box[1] - box[0] + 1) * (box[3] - box[2] + 1));
        }
    }
}

TEST(BrushPath, IsDiscsAtTheTruncatedPointsJoinedByStrokes) {
    const std::vector<std::vector<point2d>> paths = {
        {{20.9, 18.6}}, {{20.2, 18.0}, {20.7, 18.9}}, {{8, 8}, {30, 12}, {25, 31}}};
    for (const auto& path : paths) {
        PixelGrid painted(40, 40, 1.0, false), expected(40, 40, 1.0, false);
        PaintBrushPath(painted, path.data(), path.size(), 4);
        for (std::size_t i = 0; i < path.size(); ++i) {
            const point2i p{int(path[i].x), int(path[i].y)};
            StampDisc(expected, DiscHalfWidths(4), p);
            const point2i q = i > 0 ? point2i{int(path[i - 1].x), int(path[i - 1].y)} : p;
            if (!(p.x == q.x && p.y == q.y))  // a repeated pixel draws no stroke
                DrawStroke(expected, q, p, 4);
        }
        EXPECT_EQ(Cells(painted), Cells(expected)) << path.size() << " points";
    }
}

TEST(RasterBuild, RegionsAreTheFilledPolygonOrPaintedPathAndDepthStartsFarthest) {
    const std::vector<point2d> polygon = {{2.5, 1.5}, {17.5, 4.5}, {9.5, 13.5}};
    const std::vector<point2d> path = {{6, 6}, {14, 9}};
    const PixelGrid filled(polygon, 20, 15, 1.0, false);
    PixelGrid painted(20, 15, 1.0, false);
    PaintBrushPath(painted, path.data(), path.size(), 3);
    _DepthRaster polygonDepth, brushDepth;
    _RegionRaster polygonRegion, brushRegion;
    ASSERT_TRUE(_BuildPolygonDepthRaster(polygonDepth, 20, 15, polygon.data(), polygon.size()));
    ASSERT_TRUE(_BuildPolygonRegionRaster(polygonRegion, 20, 15, polygon.data(), polygon.size()));
    ASSERT_TRUE(_BuildBrushDepthRaster(brushDepth, 20, 15, path.data(), path.size(), 3));
    ASSERT_TRUE(_BuildBrushRegionRaster(brushRegion, 20, 15, path.data(), path.size(), 3));
    EXPECT_NE(Cells(filled), Cells(painted));
    EXPECT_EQ(Cells(*polygonDepth.m_region), Cells(filled));
    EXPECT_EQ(Cells(*polygonRegion.m_region), Cells(filled));
    EXPECT_EQ(Cells(*brushDepth.m_region), Cells(painted));
    EXPECT_EQ(Cells(*brushRegion.m_region), Cells(painted));
    for (const _DepthRaster* depth : {&polygonDepth, &brushDepth}) {
        EXPECT_EQ(std::make_pair(depth->m_width, depth->m_height), std::make_pair(20, 15));
        for (int cell = 0; cell < 20 * 15; ++cell) {
            std::uint32_t bits;
            std::memcpy(&bits, &depth->m_depth[cell].depth, sizeof bits);
            EXPECT_EQ(bits, 0xFF7FFFFFu);  // −FLT_MAX
            EXPECT_EQ(depth->m_depth[cell].owner, kNoOwner);
        }
    }

    // Sizes no grid can hold are refused, with the old buffers released.
    EXPECT_FALSE(_BuildBrushDepthRaster(brushDepth, 65536, 32768, path.data(), path.size(), 3));
    EXPECT_FALSE(brushDepth.m_depth || brushDepth.m_region);
    EXPECT_FALSE(_BuildPolygonRegionRaster(polygonRegion, 65536, 32768, polygon.data(), 3));
    EXPECT_FALSE(polygonRegion.m_region);
    EXPECT_FALSE(_BuildPolygonRegionRaster(brushRegion, 20, -1, polygon.data(), 3));
    EXPECT_FALSE(_BuildPolygonRegionRaster(brushRegion, 0x80000000u, 0, polygon.data(), 3));
    EXPECT_FALSE(brushRegion.m_region);
}

}  // namespace
