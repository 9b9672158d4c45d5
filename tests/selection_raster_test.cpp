#include "polygon_marking/selection_raster.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "polygon_marking/brush_footprint.h"

namespace {

using namespace AU_MarkOperations::PolygonMarking;
using VelSDK::Math::point2d;
using VelSDK::Math::point2i;

// The required brush footprint: the half-widths of the disc of radius r for |t| = 0 … r, rows
// r = 0 … 10 one after another.
constexpr int kDiscHalfWidths[] = {0, 1, 0, 2, 1,  0,  3,  3,  2, 1, 4, 4, 3, 2, 1, 5, 5,
                                   5, 4, 3, 1, 6,  6,  6,  5,  4, 3, 1, 7, 7, 7, 6, 6, 5,
                                   4, 1, 8, 8, 8,  7,  7,  6,  5, 4, 1, 9, 9, 9, 9, 8, 8,
                                   7, 6, 4, 2, 10, 10, 10, 10, 9, 9, 8, 7, 6, 4, 2};

TEST(DiscFootprint, StampedDiscsMatchTheBrushTable) {
    for (int r = 0; r <= 10; ++r) {
        PixelGrid grid(32, 32, 1.0, false);
        StampDisc(grid, DiscHalfWidths(r), point2i{15, 16});
        for (int row = 0; row < 32; ++row)
            for (int x = 0, t = std::abs(row - 16); x < 32; ++x)
                EXPECT_EQ(grid.At(row, x),
                          t <= r && std::abs(x - 15) <= kDiscHalfWidths[r * (r + 1) / 2 + t])
                    << "r " << r << " row " << row << " column " << x;
    }
}

// Brute-force inside test of a convex quadrilateral given counter-clockwise, widened by
// `margin`: every edge's outward distance of p is at most margin.
bool InsideConvex(const std::array<point2d, 4>& quad, point2d p, double margin) {
    for (int i = 0; i < 4; ++i) {
        const point2d a = quad[i], b = quad[(i + 1) % 4];
        const double length = std::hypot(b.x - a.x, b.y - a.y);
        const double cross = (b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x);
        if (length > 0 && cross / length < -margin)
            return false;
    }
    return true;
}

// The band's corners, counter-clockwise: each endpoint offset perpendicular to the direction
// lengthened by one pixel per axis, the offset scaled to the radius in single precision.
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
            // Rows between the band's lowest and highest corner are single runs holding the
            // band's inner cells, within a pixel of it; the others are empty.
            int runs = 0;
            for (int x = 0; x < kStrokeGrid; ++x) {
                const bool set = stroke.At(row, x);
                runs += set && (x == 0 || !stroke.At(row, x - 1));
                EXPECT_EQ(InsideConvex(band, {double(x), double(row)},
                                       set ? kBoundaryMargin : -kBoundaryMargin),
                          set)
                    << trial;
            }
            EXPECT_EQ(runs, row >= lowY && row <= highY) << trial << " row " << row;
        }
    }
}

TEST(Stroke, ExactBoxesOfLengthenedAndAxisParallelStrokes) {
    // From, to, radius; then the box: rows low, high, columns left, right.
    const std::array<int, 9> cases[] = {
        // (3, 4) at radius 7: the lengthened (4, 5) gives the offset (4, 5), the unlengthened
        // direction would give (4, 6).
        {20, 20, 23, 24, 7, 16, 28, 15, 28},
        {10, 30, 10, 20, 3, 20, 30, 7, 13},
        {60, 1, 70, 1, 1, 0, 2, 60, kStrokeGrid - 1},  // right end clamped to the grid
    };
    for (const auto& c : cases) {
        PixelGrid grid(kStrokeGrid, kStrokeGrid, 1.0, false);
        DrawStroke(grid, {c[0], c[1]}, {c[2], c[3]}, c[4]);
        std::array<int, 4> box{kStrokeGrid, -1, kStrokeGrid, -1};
        int count = 0;
        for (int row = 0; row < kStrokeGrid; ++row)
            for (int x = 0; x < kStrokeGrid; ++x)
                if (grid.At(row, x))
                    box = {std::min(box[0], row), std::max(box[1], row), std::min(box[2], x),
                           std::max(box[3], x)},
                    ++count;
        EXPECT_EQ(box, (std::array{c[5], c[6], c[7], c[8]})) << c[0] << "," << c[1];
        if (c[0] == c[2] || c[1] == c[3]) {  // axis-parallel strokes: full blocks
            EXPECT_EQ(count, (box[1] - box[0] + 1) * (box[3] - box[2] + 1));
        }
    }
}

TEST(RasterBuild, ImpossibleSizesAreRefusedReleasingTheOldBuffers) {
    const std::vector<point2d> polygon = {{2.5, 1.5}, {17.5, 4.5}, {9.5, 13.5}};
    _DepthRaster depth;
    _RegionRaster region;
    ASSERT_TRUE(_BuildPolygonDepthRaster(depth, 20, 15, polygon.data(), 3));
    ASSERT_TRUE(_BuildPolygonRegionRaster(region, 20, 15, polygon.data(), 3));
    EXPECT_FALSE(_BuildPolygonDepthRaster(depth, 65536, 32768, polygon.data(), 3));
    EXPECT_FALSE(_BuildPolygonRegionRaster(region, 0x80000000u, 0, polygon.data(), 3));
    EXPECT_FALSE(depth.m_depth || depth.m_region || region.m_region);
}

}  // namespace
