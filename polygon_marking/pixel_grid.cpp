#include "pixel_grid.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include "polygon_marking/int32_truncation.h"

namespace AU_MarkOperations::PolygonMarking {

using VelSDK::Math::point2d;

// Horizontal edges and zero-length segment axes divide by zero; IEEE arithmetic turns that into
// infinities and NaNs, which the crossing order and the cell walk handle.
static_assert(std::numeric_limits<double>::is_iec559, "IEEE 754 doubles required");

namespace {

// Ascending order with every NaN after all numbers and NaNs equivalent to each other: a strict
// weak ordering even when a horizontal edge on the scanline contributed a NaN crossing.
bool CrossingLess(double a, double b) {
    return a < b || (std::isnan(b) && !std::isnan(a));
}

// The x values where the scanline y = scanY crosses the closed polygon, ascending. Both ends of
// an edge are inclusive, so a scanline through a vertex gets one crossing from each edge there:
// that keeps local tops and bottoms closed and toggles twice where the boundary passes through.
// The stable sort places a new value after equal ones, as an ordered multiset would.
void CollectCrossings(const std::vector<point2d>& polygon, double scanY,
                      std::vector<double>& crossings) {
    crossings.clear();
    if (polygon.empty())
        return;
    const point2d* prev = &polygon.back();
    for (const point2d& cur : polygon) {
        if ((scanY - cur.y) * (scanY - prev->y) <= 0) {
            const double inverseSlope = (cur.x - prev->x) / (cur.y - prev->y);
            crossings.push_back(prev->x + (scanY - prev->y) * inverseSlope);
        }
        prev = &cur;
    }
    std::stable_sort(crossings.begin(), crossings.end(), CrossingLess);
}

// Walks one row's pixels from trunc(first crossing) and hands runs [first, end) of equal
// even-odd state to `handleRun`. A pixel's state counts the crossings at or left of its sample,
// so a sample exactly on a crossing takes the state after it. After the last crossing one
// more pixel is handled with the final state; pixels beyond it are not touched.
template <class HandleRun>
void WalkRowSpans(const std::vector<double>& crossings, std::int32_t width, double halfPixel,
                  HandleRun&& handleRun) {
    bool inside = false;
    std::int64_t pixel = std::max<std::int64_t>(TruncateToInt32(crossings.front()), 0);
    const double rowEnd = width - halfPixel;
    for (double crossing : crossings) {
        // std::min keeps rowEnd for a NaN crossing, so a NaN runs the span to the row's end.
        const double limit = std::min(rowEnd, crossing - halfPixel);
        if (limit > pixel) {
            // The end is capped at the width in case a non-positive pixel size pushed
            // rowEnd past the row.
            const auto end = static_cast<std::int64_t>(std::ceil(std::min(limit, 1.0 * width)));
            handleRun(pixel, end, inside);
            pixel = end;
        }
        inside = !inside;
    }
    if (pixel < width)
        handleRun(pixel, pixel + 1, inside);
}

std::size_t CellCount(std::int32_t width, std::int32_t height) {
    const std::int64_t cells = std::int64_t{width} * height;
    if (cells < 0 || cells > INT32_MAX)
        throw std::length_error("PixelGrid: width * height (" + std::to_string(width) + " * " +
                                std::to_string(height) + ") must lie in 0 .. 2147483647");
    return static_cast<std::size_t>(cells);
}

}  // namespace

PixelGrid::PixelGrid(std::int32_t width, std::int32_t height, double pixelSize, bool initialValue)
    : m_width(width), m_height(height), m_pixelSize(pixelSize), m_data(nullptr) {
    const std::size_t cells = CellCount(width, height);
    m_data = new bool[cells];
    std::memset(m_data, initialValue ? 1 : 0, cells);
}

PixelGrid::PixelGrid(const std::vector<point2d>& polygon, std::int32_t width, std::int32_t height,
                     double pixelSize, bool initialValue)
    : PixelGrid(width, height, pixelSize, initialValue) {
    const double halfPixel = m_pixelSize / 2;
    std::vector<double> crossings;
    for (std::int32_t row = m_height - 1; row >= 0; --row) {
        CollectCrossings(polygon, row + halfPixel, crossings);
        if (crossings.empty())
            continue;
        bool* rowCells = m_data + std::int64_t{row} * m_width;
        WalkRowSpans(crossings, m_width, halfPixel,
                     [rowCells](std::int64_t first, std::int64_t end, bool inside) {
                         std::memset(rowCells + first, inside ? 1 : 0, end - first);
                     });
    }
}

PixelGrid::~PixelGrid() {
    delete[] m_data;
}

bool PixelGrid::Intersect(const std::vector<point2d>& polygon) {
    double minY = DBL_MAX, maxY = -DBL_MAX;
    for (const point2d& p : polygon) {
        minY = std::min(minY, p.y);
        maxY = std::max(maxY, p.y);
    }
    // One row of margin on each side of the vertices' rows, clipped to the grid.
    const std::int64_t topRow = std::min<std::int64_t>(TruncateToInt32(maxY) + 1LL, m_height - 1);
    const std::int64_t bottomRow = std::max<std::int64_t>(TruncateToInt32(minY) - 1LL, 0);

    const double halfPixel = m_pixelSize / 2;
    std::vector<double> crossings;
    bool touchesSetPixel = false;
    for (std::int64_t row = topRow; row >= bottomRow; --row) {
        CollectCrossings(polygon, row + halfPixel, crossings);
        if (crossings.empty())
            continue;
        const bool* rowCells = m_data + row * m_width;
        WalkRowSpans(
            crossings, m_width, halfPixel,
            [rowCells, &touchesSetPixel](std::int64_t first, std::int64_t end, bool inside) {
                if (inside && std::find(rowCells + first, rowCells + end, true) != rowCells + end)
                    touchesSetPixel = true;
            });
    }
    return touchesSetPixel;
}

namespace {

// A grid walk of the unit cells a segment crosses. The walk runs in three dimensions with a
// single layer (cells 1 × 1 × 5, both ends at depth 2) over the segment's box widened by one
// cell on every side, its origin centred on that box in truncating integer arithmetic.
class SegmentCellWalk {
  public:
    // `low` must have the smaller y.
    SegmentCellWalk(const point2d& low, const point2d& high);

    // The pixel of the current cell.
    std::int64_t Column() const { return m_boxLow[0] + m_cell[0]; }
    std::int64_t Row() const { return m_boxLow[1] + m_cell[1]; }
    // Moves to the next cell the segment enters; false when the walk has ended.
    bool Advance();

  private:
    static constexpr int kAxes = 3;
    // Boundary crossings are searched for in 0 < t < kStepSearchLimit along the segment.
    static constexpr double kStepSearchLimit = 2.0;

    std::int64_t m_boxLow[kAxes];
    std::int64_t m_cellSize[kAxes] = {1, 1, 5};
    std::int64_t m_cellCount[kAxes];
    std::int64_t m_origin[kAxes];
    std::int64_t m_cell[kAxes];
    double m_from[kAxes];
    double m_delta[kAxes];
};

SegmentCellWalk::SegmentCellWalk(const point2d& low, const point2d& high) {
    m_boxLow[0] = TruncateToInt32(std::min(low.x, high.x)) - 1LL;
    m_boxLow[1] = TruncateToInt32(low.y) - 1LL;
    m_boxLow[2] = 0;
    const std::int64_t boxHigh[kAxes] = {TruncateToInt32(std::max(low.x, high.x)) + 1LL,
                                         TruncateToInt32(high.y) + 1LL, 5};
    const double from[kAxes] = {low.x, low.y, 2.0};
    const double to[kAxes] = {high.x, high.y, 2.0};
    for (int axis = 0; axis < kAxes; ++axis) {
        const std::int64_t extent = boxHigh[axis] - m_boxLow[axis];
        const std::int64_t size = m_cellSize[axis];
        m_cellCount[axis] = std::max<std::int64_t>((extent + size - 1) / size, 1);
        m_origin[axis] = (m_boxLow[axis] + boxHigh[axis]) / 2 - m_cellCount[axis] * size / 2;
        m_from[axis] = from[axis];
        m_delta[axis] = to[axis] - from[axis];
        m_cell[axis] =
            m_origin[axis] > from[axis] ? 0 : TruncateToInt32((from[axis] - m_origin[axis]) / size);
    }
}

bool SegmentCellWalk::Advance() {
    // The nearest boundary ahead on any axis, each measured from the segment's start; a later
    // axis wins a tie only when strictly nearer.
    int stepAxis = -1;
    double stepT = 0.0;
    for (int axis = 0; axis < kAxes; ++axis) {
        const bool forward = m_delta[axis] > 0;
        const std::int64_t boundaryCell = m_cell[axis] + (forward ? 1 : 0);
        const double boundary =
            static_cast<double>(m_origin[axis] + boundaryCell * m_cellSize[axis]);
        const double t = (boundary - m_from[axis]) / m_delta[axis];
        if (t > 0 && t < kStepSearchLimit && (stepAxis < 0 || t < stepT)) {
            stepAxis = axis;
            stepT = t;
        }
    }
    if (stepAxis < 0 || stepT > 1.0)
        return false;
    m_cell[stepAxis] += m_delta[stepAxis] > 0 ? 1 : -1;
    return m_cell[stepAxis] >= 0 && m_cell[stepAxis] < m_cellCount[stepAxis];
}

}  // namespace

bool PixelGrid::Intersect(std::array<point2d, 2> segment) const {
    if (segment[0].y > segment[1].y)
        std::swap(segment[0], segment[1]);
    const double dx = segment[1].x - segment[0].x;
    const double dy = segment[1].y - segment[0].y;
    const bool startCellOnly = dx * dx + dy * dy < kMinSegmentLengthSq;

    SegmentCellWalk walk(segment[0], segment[1]);
    do {
        const std::int64_t column = walk.Column();
        const std::int64_t row = walk.Row();
        if (column >= 0 && column < m_width && row >= 0 && row < m_height &&
            m_data[row * m_width + column])
            return true;
    } while (!startCellOnly && walk.Advance());
    return false;
}

}  // namespace AU_MarkOperations::PolygonMarking
