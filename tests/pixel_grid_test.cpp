#include <velpick/pixel_grid.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <utility>
#include <vector>

namespace {

using AU_MarkOperations::PolygonMarking::kMinSegmentLengthSq;
using AU_MarkOperations::PolygonMarking::PixelGrid;
using VelSDK::Math::point2d;
using Polygon = std::vector<point2d>;

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

// Exact test, for integer vertices, of whether the pixel centre (x + ½, y + ½) lies on an edge.
bool CentreOnEdge(const Polygon& polygon, int x, int y) {
    const long long sx = 2 * x + 1, sy = 2 * y + 1;
    for (std::size_t i = 0, j = polygon.size() - 1; i < polygon.size(); j = i++) {
        const long long ax = 2 * llround(polygon[j].x), ay = 2 * llround(polygon[j].y);
        const long long bx = 2 * llround(polygon[i].x), by = 2 * llround(polygon[i].y);
        const long long cross = (bx - ax) * (sy - ay) - (by - ay) * (sx - ax);
        if (cross == 0 && std::min(ax, bx) <= sx && sx <= std::max(ax, bx) &&
            std::min(ay, by) <= sy && sy <= std::max(ay, by))
            return true;
    }
    return false;
}

class PixelGridFillTest : public ::testing::Test {
  protected:
    static constexpr int kWidth = 37, kHeight = 29;
    // Off the pixel centres' heights, so the star's vertex at angle 0 is no sample's height.
    static constexpr double kCentreX = kWidth / 2.0 + 0.123, kCentreY = kHeight / 2.0 + 0.321;
    std::mt19937 random{2024};

    // Vertices anywhere in and around the grid: random polygons are mostly self-intersecting.
    Polygon RandomPolygon(int vertices, bool integer) {
        std::uniform_real_distribution<double> x(-4.0, kWidth + 4.0), y(-4.0, kHeight + 4.0);
        Polygon polygon;
        for (int i = 0; i < vertices; ++i) {
            const point2d p{x(random), y(random)};
            polygon.push_back(integer ? point2d{std::round(p.x), std::round(p.y)} : p);
        }
        return polygon;
    }

    // A simple polygon: a star around the grid's centre.
    Polygon RandomStar(int vertices) {
        std::uniform_real_distribution<double> radius(2.0, kHeight / 2.0);
        Polygon polygon;
        for (int i = 0; i < vertices; ++i) {
            const double angle = 2 * M_PI * i / vertices, r = radius(random);
            polygon.push_back({kCentreX + r * std::cos(angle), kCentreY + r * std::sin(angle)});
        }
        return polygon;
    }

    void ExpectEvenOddFill(const Polygon& polygon, bool integer) {
        const PixelGrid grid(polygon, kWidth, kHeight, 1.0, false);
        const bool* cells = grid;
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                if (integer && CentreOnEdge(polygon, x, y))
                    continue;
                EXPECT_EQ(cells[y * kWidth + x], EvenOddInside(polygon, x + 0.5, y + 0.5))
                    << "pixel " << x << "," << y;
            }
    }
};

TEST_F(PixelGridFillTest, RandomPolygonsMatchEvenOddAtPixelCentres) {
    for (int trial = 0; trial < 40; ++trial) {
        SCOPED_TRACE(trial);
        ExpectEvenOddFill(RandomPolygon(3 + trial % 12, false), false);
        ExpectEvenOddFill(RandomStar(5 + trial), false);
        ExpectEvenOddFill(RandomPolygon(3 + trial % 12, true), true);  // off their edges only
    }
}

TEST_F(PixelGridFillTest, CrossingQuirks) {
    // Checks rows firstRow … lastRow of the fill of a w × h grid starting at `initial`.
    const auto check = [](const char* name, const Polygon& polygon, int w, int h, bool initial,
                          int firstRow, int lastRow, auto expected) {
        SCOPED_TRACE(name);
        PixelGrid grid(polygon, w, h, 1.0, initial);
        for (int row = firstRow; row <= lastRow; ++row)
            for (int x = 0; x < w; ++x)
                EXPECT_EQ(grid.At(row, x), expected(row, x)) << row << "," << x;
    };
    // The right boundary passes upward through (6, 2.5), on row 2's scanline: both edges meeting
    // there give a crossing at 6, so the pixel after it is handled as inside.
    check("vertex on a scanline toggles twice", {{2, 0.3}, {6, 2.5}, {8, 4.7}, {0.5, 4.7}}, 12, 6,
          false, 2, 2, [](int, int x) { return x >= 1 && x <= 6; });
    check("sample on a crossing takes the state after it",
          {{2.5, 0.2}, {6.5, 0.2}, {6.5, 3.7}, {2.5, 3.7}}, 10, 5, false, 0, 4,
          [](int row, int x) { return row <= 3 && x >= 2 && x <= 5; });
    // Row spans touch pixels trunc(2.9) = 2 … one past the last crossing (pixel 6).
    check("initial value survives outside the touched span",
          {{2.9, 1.2}, {6.2, 1.2}, {6.2, 2.8}, {2.9, 2.8}}, 12, 4, true, 0, 3,
          [](int row, int x) { return !((row == 1 || row == 2) && (x == 2 || x == 6)); });
    // The top edge on row 2's scanline gives a NaN crossing that sorts last: its run reaches the
    // row's end with the state after the real crossings; pixel 0 is never touched.
    check("horizontal edge on a scanline runs the row to its end",
          {{1.2, 0.3}, {6.7, 0.3}, {6.7, 2.5}, {1.2, 2.5}}, 12, 4, true, 1, 2,
          [](int row, int x) { return row == 2 ? x <= 6 : x != 7; });
}

TEST_F(PixelGridFillTest, PolygonIntersectMatchesTheFillAgainstRandomGrids) {
    EXPECT_FALSE(PixelGrid(8, 8, 1.0, true).Intersect(Polygon{}));
    std::bernoulli_distribution sparse(0.002);
    int hits = 0;
    for (int trial = 0; trial < 200; ++trial) {
        PixelGrid grid(kWidth, kHeight, 1.0, false);
        bool* cells = grid;
        for (int cell = 0; cell < kWidth * kHeight; ++cell)
            cells[cell] = sparse(random);
        const std::vector<bool> before(cells, cells + kWidth * kHeight);
        const Polygon polygon = trial % 2 ? RandomPolygon(3 + trial % 7, false) : RandomStar(6);
        const PixelGrid fill(polygon, kWidth, kHeight, 1.0, false);
        const bool* filled = fill;
        bool expected = false;
        for (int cell = 0; cell < kWidth * kHeight; ++cell)
            expected = expected || (filled[cell] && cells[cell]);
        EXPECT_EQ(grid.Intersect(polygon), expected) << trial;
        EXPECT_EQ(std::vector<bool>(cells, cells + kWidth * kHeight), before);
        hits += expected;
    }
    EXPECT_GT(hits, 20);
    EXPECT_LT(hits, 180);
}

// A braced pair of points would pick the polygon overload; name the segment form's argument.
std::array<point2d, 2> Segment(point2d p, point2d q) {
    return {p, q};
}

// The walk's frame along one axis: the segment's pixel box widened by one, its origin centred
// in truncating integer arithmetic (one cell right of the box's low end when the box straddles
// zero with an odd sum).
struct WalkAxis {
    long long low, origin, count;
    WalkAxis(double lowEnd, double highEnd)
        : low(static_cast<long long>(lowEnd) - 1),
          origin((low + static_cast<long long>(highEnd) + 1) / 2),
          count(static_cast<long long>(highEnd) + 1 - low) {
        origin -= count / 2;
    }
};

using Pixels = std::set<std::pair<long long, long long>>;

// The (row, column) pixels a segment's walk tests within rows and columns [0, size): each
// unit cell of the walk's frame the segment passes through by a positive length, mapped from
// the box's low corner.
Pixels CrossedPixels(point2d p, point2d q, long long size) {
    if (p.y > q.y)
        std::swap(p, q);
    const WalkAxis ax(std::min(p.x, q.x), std::max(p.x, q.x)), ay(p.y, q.y);
    const double d[2] = {q.x - p.x, q.y - p.y}, from[2] = {p.x, p.y};
    Pixels pixels;
    for (long long i = std::max(0LL, -ax.low); i < std::min(ax.count, size - ax.low); ++i)
        for (long long j = std::max(0LL, -ay.low); j < std::min(ay.count, size - ay.low); ++j) {
            double t0 = 0, t1 = 1;
            const double lo[2] = {double(ax.origin + i), double(ay.origin + j)};
            for (int axis = 0; axis < 2; ++axis) {
                if (d[axis] == 0) {
                    if (from[axis] < lo[axis] || from[axis] >= lo[axis] + 1)
                        t1 = -1;
                    continue;
                }
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

class SegmentIntersectTest : public ::testing::Test {
  protected:
    static constexpr int kSize = 16;
    PixelGrid grid{kSize, kSize, 1.0, false};
};

TEST_F(SegmentIntersectTest, WalkTestsExactlyTheCrossedPixels) {
    std::mt19937 random(99);
    std::uniform_real_distribution<double> coordinate(-3.0, kSize + 3.0);
    // Far ends up to a billion pixels away: only the grid's cells may cost time.
    std::uniform_real_distribution<double> direction(0.0, 2 * M_PI), exponent(1.0, 9.0);
    for (int compared = 0; compared < 300;) {
        const point2d p{coordinate(random), coordinate(random)};
        point2d q{coordinate(random), coordinate(random)};
        if (compared % 2) {
            const double angle = direction(random), length = std::pow(10.0, exponent(random));
            q = {p.x + length * std::cos(angle), p.y + length * std::sin(angle)};
        }
        // The walk starts in the lower endpoint's cell; keep that endpoint inside the frame.
        const point2d& low = p.y <= q.y ? p : q;
        const WalkAxis ax(std::min(p.x, q.x), std::max(p.x, q.x)), ay(low.y, std::max(p.y, q.y));
        if (low.x < ax.origin || low.y < ay.origin)
            continue;
        Pixels detected;
        for (int row = 0; row < kSize; ++row)
            for (int column = 0; column < kSize; ++column) {
                grid.At(row, column) = true;
                if (grid.Intersect(Segment(p, q)))
                    detected.insert({row, column});
                grid.At(row, column) = false;
            }
        EXPECT_EQ(detected, CrossedPixels(p, q, kSize))
            << p.x << "," << p.y << " " << q.x << "," << q.y;
        ++compared;
    }
}

TEST_F(SegmentIntersectTest, WalkQuirks) {
    {
        SCOPED_TRACE("x box -2 ... 1 maps cells from column -2 around an origin of -1");
        grid.At(2, 0) = true;
        EXPECT_FALSE(grid.Intersect(Segment({-1.5, 2.2}, {0.5, 2.7})));
        EXPECT_TRUE(grid.Intersect(Segment({0.2, 2.2}, {0.5, 2.7})));
        grid.At(2, 0) = false;
    }
    SCOPED_TRACE("a segment shorter than the minimum tests only its lower endpoint's pixel");
    const point2d upper{4.005, 5.315}, lower{3.995, 5.3};
    ASSERT_LT(0.01 * 0.01 + 0.015 * 0.015, kMinSegmentLengthSq);
    grid.At(5, 4) = true;
    EXPECT_FALSE(grid.Intersect(Segment(upper, lower)));
    grid.At(5, 3) = true;
    EXPECT_TRUE(grid.Intersect(Segment(upper, lower)));
    grid.At(5, 3) = false;  // just above the threshold the walk steps into column 4
    EXPECT_TRUE(grid.Intersect(Segment({3.99, 5.3}, {4.01, 5.31})));
}

TEST_F(SegmentIntersectTest, SegmentsBeyondTheIntegerRangeEndAtTheGrid) {
    grid.At(7, 0) = grid.At(7, kSize - 1) = true;
    const double huge = std::numeric_limits<double>::max();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const auto& [p, q] : std::vector<std::pair<point2d, point2d>>{
             {{-huge, 7.5}, {huge, 7.5}},
             {{-1e308, -1e308}, {1e308, 1e308}},
             {{0.5, -huge}, {0.5, huge}},
             {{nan, 7.5}, {3.5, 7.5}},
             {{INFINITY, 7.5}, {-INFINITY, 7.5}},
             // Found by fuzzing: every boundary of the far end's frame has t = 1.
             {{36.75, 36.75}, {-1.3636493946405294e308, -7.8687196289458854e307}}}) {
        grid.Intersect(Segment(p, q));  // must end; the answer for such coordinates is free
    }
    EXPECT_TRUE(grid.Intersect(Segment({-2e9, 7.5}, {2e9, 7.5})));
    PixelGrid empty(0, 1000, 1.0, true);
    EXPECT_FALSE(empty.Intersect(Segment({-2e9, 7.5}, {2e9, 7.5})));
}

TEST(PixelGridLayout, ImpossibleSizesThrowAndGridsWithoutCellsOrWithNegativePixelSizesStayIn) {
    EXPECT_THROW(PixelGrid(65536, 32768, 1.0, false), std::length_error);
    EXPECT_THROW(PixelGrid(4, -2, 1.0, false), std::length_error);
    EXPECT_EQ(static_cast<const bool*>(PixelGrid(0, 5, 1.0, true)), nullptr);
    const Polygon square{{1, 1}, {9, 1}, {9, 9}, {1, 9}};
    for (const auto& [width, height] : {std::pair{0, INT32_MAX}, std::pair{0, INT32_MIN},
                                        std::pair{INT32_MAX, 0}, std::pair{-5, 0}}) {
        PixelGrid grid(square, width, height, 1.0, true);
        EXPECT_FALSE(grid.Intersect(square));
        EXPECT_FALSE(grid.Intersect(Segment({0, 0}, {1e9, 1e9})));
    }
    // A negative size moves every sample below and left of its pixel's corner; the fill and
    // the test still touch no cell beyond the grid (checked by the sanitizers) and mark only
    // pixels next to the square.
    for (const double size : {-1.0, -7.0, -1e300}) {
        PixelGrid grid(square, 4, 12, size, false);
        const bool* cells = grid;
        for (int cell = 0; cell < 4 * 12; ++cell)
            EXPECT_TRUE(!cells[cell] || (cell / 4 >= 1 && cell / 4 <= 10)) << size << " " << cell;
        EXPECT_EQ(grid.Intersect(square), std::find(cells, cells + 48, true) != cells + 48);
    }
}

}  // namespace
