#include <velpick/pixel_grid.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <optional>
#include <random>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using AU_MarkOperations::PolygonMarking::PixelGrid;
using VelSDK::Math::point2d;
using Polygon = std::vector<point2d>;

constexpr int kWidth = 37, kHeight = 29;

// Even-odd test of a sample against the closed polygon: crossings of the horizontal line at
// or left of the sample. Exact only where the sample is off every edge and vertex height.
bool EvenOddInside(const Polygon& polygon, double x, double y) {
    bool inside = false;
    for (std::size_t i = 0, j = polygon.size() - 1; i < polygon.size(); j = i++) {
        const point2d a = polygon[i], b = polygon[j];
        if ((a.y > y) != (b.y > y) && a.x + (y - a.y) * (b.x - a.x) / (b.y - a.y) <= x)
            inside = !inside;
    }
    return inside;
}

// A braced pair of points would pick the polygon overload; name the segment form's argument.
std::array<point2d, 2> Segment(point2d p, point2d q) {
    return {p, q};
}

// The fill against the even-odd test of every pixel centre off the edges, and the polygon test
// of a grid of one set cell against that cell of the fill.
TEST(PixelGridFill, RandomPolygonsMatchEvenOddAtPixelCentresAndIntersectTheFill) {
    constexpr double kOffEdge = 1e-6;  // a centre this close right of an edge may go either way
    std::mt19937 random(2024);
    std::uniform_real_distribution<double> alongX(-4.0, kWidth + 4.0), alongY(-4.0, kHeight + 4.0);
    for (int trial = 0; trial < 120; ++trial) {
        // Vertices anywhere in and around the grid: the polygons are mostly self-intersecting.
        Polygon polygon(3 + trial % 40);
        for (point2d& p : polygon)
            p = {alongX(random), alongY(random)};
        const PixelGrid fill(polygon, kWidth, kHeight, 1.0, false);
        PixelGrid cells(kWidth, kHeight, 1.0, false);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                const bool inside = EvenOddInside(polygon, x + 0.5, y + 0.5);
                EXPECT_TRUE(fill.At(y, x) == inside ||
                            EvenOddInside(polygon, x + 0.5 - kOffEdge, y + 0.5) != inside)
                    << trial << ": pixel " << x << "," << y;
                cells.At(y, x) = true;
                EXPECT_EQ(cells.Intersect(polygon), fill.At(y, x)) << trial;
                cells.At(y, x) = false;
            }
    }
    EXPECT_FALSE(PixelGrid(8, 8, 1.0, true).Intersect(Polygon{}));
}

// Rows whose samples meet the boundary: a vertex on the scanline gives a crossing from each
// edge there (the pixel after the pair is inside), a sample on a crossing takes the state after
// it, and a horizontal edge on the scanline gives a NaN crossing that sorts last.
TEST(PixelGridFill, RowsThroughTheBoundaryAndGridsOfImpossibleOrNoCells) {
    const std::tuple<Polygon, int, const char*> rows[] = {
        {{{2, 0.3}, {6, 2.5}, {8, 4.7}, {0.5, 4.7}}, 2, ".######....."},
        {{{2.5, 0.2}, {6.5, 0.2}, {6.5, 3.7}, {2.5, 3.7}}, 1, "..####......"},
        {{{1.2, 0.3}, {6.7, 0.3}, {6.7, 2.5}, {1.2, 2.5}}, 2, ".######....."},
    };
    for (const auto& [polygon, row, cells] : rows) {
        const PixelGrid grid(polygon, 12, 6, 1.0, false);
        for (int x = 0; x < 12; ++x)
            EXPECT_EQ(grid.At(row, x), cells[x] == '#') << row << "," << x;
    }
    EXPECT_THROW(PixelGrid(65536, 32768, 1.0, false), std::length_error);
    EXPECT_THROW(PixelGrid(4, -2, 1.0, false), std::length_error);
    const Polygon square{{1, 1}, {9, 1}, {9, 9}, {1, 9}};
    for (const auto& [width, height] : {std::pair{0, INT32_MAX}, std::pair{0, INT32_MIN},
                                        std::pair{INT32_MAX, 0}, std::pair{-5, 0}}) {
        PixelGrid grid(square, width, height, 1.0, true);
        EXPECT_FALSE(grid.Intersect(square) || grid.Intersect(Segment({-2e9, 0}, {1e9, 1e9})));
    }
}

// The walk's frame along one axis: the segment's pixel box widened by one, its origin centred
// in truncating integer arithmetic (one cell right of the box's low end when the box straddles
// zero with an odd sum).
struct WalkAxis {
    long long low, count, origin;
    WalkAxis(double lowEnd, double highEnd)
        : low(static_cast<long long>(lowEnd) - 1),
          count(static_cast<long long>(highEnd) + 1 - low),
          origin((low + static_cast<long long>(highEnd) + 1) / 2 - count / 2) {}
};

using Pixels = std::set<std::pair<long long, long long>>;

// The (row, column) pixels a segment's walk tests within rows and columns [0, size): each
// unit cell of the walk's frame the segment passes through by a positive length, mapped from
// the box's low corner. The segment is neither horizontal nor vertical. None when the lower
// endpoint lies left of or below the frame, where the walk would start at its first cell.
std::optional<Pixels> CrossedPixels(point2d p, point2d q, long long size) {
    const point2d& low = p.y <= q.y ? p : q;
    const WalkAxis ax(std::min(p.x, q.x), std::max(p.x, q.x)), ay(low.y, std::max(p.y, q.y));
    if (low.x < ax.origin || low.y < ay.origin)
        return std::nullopt;
    const double d[2] = {q.x - p.x, q.y - p.y}, from[2] = {p.x, p.y};
    Pixels pixels;
    for (long long i = std::max(0LL, -ax.low); i < std::min(ax.count, size - ax.low); ++i)
        for (long long j = std::max(0LL, -ay.low); j < std::min(ay.count, size - ay.low); ++j) {
            double t0 = 0, t1 = 1;
            const double lo[2] = {double(ax.origin + i), double(ay.origin + j)};
            for (int axis = 0; axis < 2; ++axis) {
                const double ta = (lo[axis] - from[axis]) / d[axis];
                const double tb = (lo[axis] + 1 - from[axis]) / d[axis];
                t0 = std::max(t0, std::min(ta, tb));
                t1 = std::min(t1, std::max(ta, tb));
            }
            if (t0 < t1)
                pixels.insert({ay.low + j, ax.low + i});
        }
    return pixels;
}

constexpr int kSize = 16;  // of the grids segments are tested against

TEST(SegmentIntersect, WalkTestsExactlyTheCrossedPixels) {
    PixelGrid grid(kSize, kSize, 1.0, false);
    std::mt19937 random(99);
    std::uniform_real_distribution<double> coordinate(-3.0, kSize + 3.0), direction(0.0, 2 * M_PI);
    // Every other segment reaches up to a billion pixels away: only the grid's cells may cost
    // time. The others are 0.7 to 30 pixels long.
    std::uniform_real_distribution<double> exponent(-1.0, 9.0);
    for (int trial = 0; trial < 330; ++trial) {
        const point2d p{coordinate(random), coordinate(random)};
        const double angle = direction(random);
        const double length = std::pow(10.0, exponent(random) / (trial % 2 ? 1 : 6));
        const point2d q{p.x + length * std::cos(angle), p.y + length * std::sin(angle)};
        const std::optional<Pixels> expected = CrossedPixels(p, q, kSize);
        if (!expected)
            continue;
        Pixels detected;
        for (int cell = 0; cell < kSize * kSize; ++cell) {
            grid.At(cell / kSize, cell % kSize) = true;
            if (grid.Intersect(Segment(p, q)))
                detected.insert({cell / kSize, cell % kSize});
            grid.At(cell / kSize, cell % kSize) = false;
        }
        EXPECT_EQ(detected, *expected) << p.x << "," << p.y << " " << q.x << "," << q.y;
    }
}

TEST(SegmentIntersect, FrameOriginShortSegmentsAndCoordinatesBeyondTheIntegerRange) {
    PixelGrid grid(kSize, kSize, 1.0, false);
    // The x box -2 … 1 maps cells from column -2 around an origin of -1.
    grid.At(2, 0) = true;
    EXPECT_FALSE(grid.Intersect(Segment({-1.5, 2.2}, {0.5, 2.7})));
    EXPECT_TRUE(grid.Intersect(Segment({0.2, 2.2}, {0.5, 2.7})));
    // A segment shorter than the minimum (length² 0.000325) tests only its lower endpoint's
    // pixel; just above the threshold the walk steps into column 4.
    grid.At(5, 4) = true;
    EXPECT_FALSE(grid.Intersect(Segment({4.005, 5.315}, {3.995, 5.3})));
    EXPECT_TRUE(grid.Intersect(Segment({3.99, 5.3}, {4.01, 5.31})));
    grid.At(5, 3) = true;
    EXPECT_TRUE(grid.Intersect(Segment({4.005, 5.315}, {3.995, 5.3})));
    // Segments beyond the integer range end at the grid.
    grid.At(7, 0) = grid.At(7, kSize - 1) = true;
    for (const auto& [p, q] : std::vector<std::pair<point2d, point2d>>{
             {{-DBL_MAX, 7.5}, {DBL_MAX, 7.5}},
             {{-1e308, -1e308}, {1e308, 1e308}},
             {{0.5, -DBL_MAX}, {0.5, DBL_MAX}},
             {{NAN, 7.5}, {3.5, 7.5}},
             {{INFINITY, 7.5}, {-INFINITY, 7.5}},
             // Found by fuzzing: every boundary of the far end's frame has t = 1.
             {{36.75, 36.75}, {-1.3636493946405294e308, -7.8687196289458854e307}}}) {
        grid.Intersect(Segment(p, q));  // must end; the answer for such coordinates is free
    }
    EXPECT_TRUE(grid.Intersect(Segment({-2e9, 7.5}, {2e9, 7.5})));
}

}  // namespace
