#include "polygon_marking/brush_footprint.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "polygon_marking/int32_truncation.h"

namespace AU_MarkOperations::PolygonMarking {

using VelSDK::Math::point2d;
using VelSDK::Math::point2i;

namespace {

// Sets the cells left … right of one row; a right end beyond the grid is clamped to the last
// column, the left end and the row are the caller's to keep inside.
void FillRow(PixelGrid& grid, std::int64_t row, std::int64_t left, std::int64_t right) {
    const std::int64_t width = grid.GetWidth();
    right = std::min(right, width - 1);
    if (right < left)
        return;
    bool* rowCells = static_cast<bool*>(grid) + row * width;
    std::fill(rowCells + left, rowCells + right + 1, true);
}

void FillBlock(PixelGrid& grid, std::int64_t firstRow, std::int64_t lastRow, std::int64_t left,
               std::int64_t right) {
    for (std::int64_t row = firstRow; row <= lastRow; ++row)
        FillRow(grid, row, left, right);
}

// One side of a quadrilateral band, stepped a row at a time: the column advances by the
// quotient of run over rows, and one more step whenever twice the accumulated remainder
// reaches the row count, so the column lands exactly on the edge's end.
class BoundaryStepper {
  public:
    BoundaryStepper(point2i from, point2i to)
        : m_column(from.x), m_rows(std::int64_t{to.y} - from.y) {
        const std::int64_t run = std::int64_t{to.x} - from.x;
        m_direction = run < 0 ? -1 : 1;
        if (m_rows > 0) {
            m_quotient = run / m_rows;
            m_remainder = std::abs(run % m_rows);
        }
    }

    std::int64_t Column() const { return m_column; }

    void Step() {
        m_column += m_quotient;
        m_error += m_remainder;
        if (m_rows > 0 && 2 * m_error >= m_rows) {
            m_column += m_direction;
            m_error -= m_rows;
        }
    }

  private:
    std::int64_t m_column;
    std::int64_t m_rows;
    std::int64_t m_direction = 1;
    std::int64_t m_quotient = 0;
    std::int64_t m_remainder = 0;
    std::int64_t m_error = 0;
};

void FillBetween(PixelGrid& grid, std::int64_t row, const BoundaryStepper& a,
                 const BoundaryStepper& b) {
    FillRow(grid, row, std::min(a.Column(), b.Column()), std::max(a.Column(), b.Column()));
}

// Each component lengthened by one pixel away from zero.
std::int64_t Lengthened(std::int64_t component) {
    return component >= 1 ? component + 1 : component - 1;
}

// ex·s rounded half away from zero, the side chosen by the sign of ex.
std::int32_t ScaledOffset(std::int64_t component, float scale) {
    const float scaled = static_cast<float>(component) * scale;
    return TruncateToInt32(component > 0 ? scaled + 0.5 : scaled - 0.5);
}

// Corners (from + o⊥, from − o⊥, to + o⊥, to − o⊥) with o⊥ = (oy, −ox); corner i lies
// opposite corner 3 − i.
std::array<point2i, 4> StrokeCorners(point2i from, point2i to, std::int32_t radius) {
    const std::int64_t ex = Lengthened(std::int64_t{to.x} - from.x);
    const std::int64_t ey = Lengthened(std::int64_t{to.y} - from.y);
    const float scale =
        static_cast<float>(radius) / std::sqrt(static_cast<float>(ex * ex + ey * ey));
    const std::int32_t ox = ScaledOffset(ex, scale);
    const std::int32_t oy = ScaledOffset(ey, scale);
    return {point2i{from.x + oy, from.y - ox}, point2i{from.x - oy, from.y + ox},
            point2i{to.x + oy, to.y - ox}, point2i{to.x - oy, to.y + ox}};
}

// Fills the parallelogram row by row in three bands split at the corners' rows. Its lowest
// corner and the opposite (highest) one are joined by two boundary chains, one through each of
// the remaining corners.
void FillParallelogram(PixelGrid& grid, const std::array<point2i, 4>& corners) {
    std::size_t lowest = 0;
    for (std::size_t i = 1; i < corners.size(); ++i)
        if (corners[i].y < corners[lowest].y)
            lowest = i;
    const point2i bottom = corners[lowest];
    const point2i top = corners[3 - lowest];
    point2i middleLow = corners[lowest == 0 || lowest == 3 ? 1 : 0];
    point2i middleHigh = corners[lowest == 0 || lowest == 3 ? 2 : 3];
    if (middleHigh.y < middleLow.y)
        std::swap(middleLow, middleHigh);

    BoundaryStepper chainA(bottom, middleLow), chainB(bottom, middleHigh);
    std::int64_t row = bottom.y;
    for (; row < middleLow.y; ++row, chainA.Step(), chainB.Step())
        FillBetween(grid, row, chainA, chainB);
    chainA = BoundaryStepper(middleLow, top);
    for (; row < middleHigh.y; ++row, chainA.Step(), chainB.Step())
        FillBetween(grid, row, chainA, chainB);
    chainB = BoundaryStepper(middleHigh, top);
    for (; row <= top.y; ++row, chainA.Step(), chainB.Step())
        FillBetween(grid, row, chainA, chainB);
}

point2i ToPixel(const point2d& p) {
    return {TruncateToInt32(p.x), TruncateToInt32(p.y)};
}

}  // namespace

std::vector<std::int32_t> DiscHalfWidths(std::int32_t radius) {
    if (radius < 0)
        return {};
    // Midpoint circle in quarter units. A[k] is the largest x reached while y was r − k, B[x]
    // is y at x. The loop may write index r + 1 (r = 0), hence r + 2 entries.
    const std::int64_t r = radius;
    std::vector<std::int64_t> a(r + 2, 0), b(r + 2, 0);
    std::int64_t x = 0, y = r, d = 4 * r * r - 2 * r + 1, k = 0;
    b[0] = r;
    while (x <= y) {
        ++x;
        if (4 * r * r - 4 * x * x < d) {
            d += 4 - 8 * y;
            --y;
            ++k;
        }
        a[k] = x;
        b[x] = y;
    }
    // The outer n rows take their width from A, the inner rows from B.
    const std::int64_t n = std::min(k + 1, r);
    std::vector<std::int32_t> halfWidths(r + 1);
    halfWidths[0] = static_cast<std::int32_t>(b[0]);
    for (std::int64_t t = 1; t <= r; ++t)
        halfWidths[t] = static_cast<std::int32_t>(t > r - n ? a[r - t] : b[t - 1]);
    return halfWidths;
}

void StampDisc(PixelGrid& grid, const std::vector<std::int32_t>& halfWidths, point2i centre) {
    const auto reach = static_cast<std::int64_t>(halfWidths.size()) - 1;
    for (std::int64_t t = -reach; t <= reach; ++t) {
        const std::int64_t halfWidth = halfWidths[std::abs(t)];
        FillRow(grid, centre.y + t, centre.x - halfWidth, centre.x + halfWidth);
    }
}

void DrawStroke(PixelGrid& grid, point2i from, point2i to, std::int32_t radius) {
    if (from == to)
        return;
    if (from.x == to.x) {
        FillBlock(grid, std::min(from.y, to.y), std::max(from.y, to.y),
                  std::int64_t{from.x} - radius, std::int64_t{from.x} + radius);
        return;
    }
    if (from.y == to.y) {
        FillBlock(grid, std::int64_t{from.y} - radius, std::int64_t{from.y} + radius,
                  std::min(from.x, to.x), std::max(from.x, to.x));
        return;
    }
    FillParallelogram(grid, StrokeCorners(from, to, radius));
}

void PaintBrushPath(PixelGrid& grid, const point2d* path, std::size_t count, std::int32_t radius) {
    if (count == 0)
        return;
    const std::vector<std::int32_t> halfWidths = DiscHalfWidths(radius);
    point2i previous = ToPixel(path[0]);
    for (std::size_t i = 1; i < count; ++i) {
        const point2i current = ToPixel(path[i]);
        StampDisc(grid, halfWidths, previous);
        DrawStroke(grid, previous, current, radius);
        previous = current;
    }
    StampDisc(grid, halfWidths, previous);
}

}  // namespace AU_MarkOperations::PolygonMarking
