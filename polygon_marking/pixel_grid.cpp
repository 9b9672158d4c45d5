#include <velpick/pixel_grid.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <iterator>
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
            // The end is capped at the width in case a negative pixel size pushed rowEnd past
            // the row; a run that would then start beyond the row is not handed out.
            const auto end = static_cast<std::int64_t>(std::ceil(std::min(limit, 1.0 * width)));
            if (end > pixel) {
                handleRun(pixel, end, inside);
                pixel = end;
            }
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
    : m_width(width),
      m_height(height),
      m_pixelSize(pixelSize),
      m_cells(initialValue, CellCount(width, height)) {}

PixelGrid::PixelGrid(const std::vector<point2d>& polygon, std::int32_t width, std::int32_t height,
                     double pixelSize, bool initialValue)
    : PixelGrid(width, height, pixelSize, initialValue) {
    // A grid without cells has nothing to fill, however many empty rows it declares.
    if (m_width <= 0)
        return;
    const double halfPixel = m_pixelSize / 2;
    std::vector<double> crossings;
    for (std::int64_t row = std::int64_t{m_height} - 1; row >= 0; --row) {
        CollectCrossings(polygon, row + halfPixel, crossings);
        if (crossings.empty())
            continue;
        bool* rowCells = std::begin(m_cells) + row * m_width;
        WalkRowSpans(crossings, m_width, halfPixel,
                     [rowCells](std::int64_t first, std::int64_t end, bool inside) {
                         std::fill(rowCells + first, rowCells + end, inside);
                     });
    }
}

bool PixelGrid::Intersect(const std::vector<point2d>& polygon) const {
    if (m_width <= 0)
        return false;
    double minY = DBL_MAX, maxY = -DBL_MAX;
    for (const point2d& p : polygon) {
        minY = std::min(minY, p.y);
        maxY = std::max(maxY, p.y);
    }
    // One row of margin on each side of the vertices' rows, clipped to the grid.
    const std::int64_t topRow =
        std::min<std::int64_t>(TruncateToInt32(maxY) + 1LL, std::int64_t{m_height} - 1);
    const std::int64_t bottomRow = std::max<std::int64_t>(TruncateToInt32(minY) - 1LL, 0);

    const double halfPixel = m_pixelSize / 2;
    std::vector<double> crossings;
    bool touchesSetPixel = false;
    for (std::int64_t row = topRow; row >= bottomRow; --row) {
        CollectCrossings(polygon, row + halfPixel, crossings);
        if (crossings.empty())
            continue;
        const bool* rowCells = std::begin(m_cells) + row * m_width;
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

// Cells a segment's walk may visit beside the grid's rows and columns once skipped to it.
constexpr std::int64_t kWalkSlack = 8;

// A grid walk of the unit cells a segment crosses. The walk runs in three dimensions with a
// single layer (cells 1 × 1 × 5, both ends at depth 2) over the segment's box widened by one
// cell on every side, its origin centred on that box in truncating integer arithmetic.
//
// Each axis steps monotonically (rows only upwards, since the walk starts at the lower end),
// and every boundary's crossing parameter t depends only on that boundary. The walk is
// therefore the merge, by t, of each axis's boundary sequence, and its cell after all
// crossings before some t can be counted per axis instead of stepped to one by one.
class SegmentCellWalk {
  public:
    // `low` must have the smaller y.
    SegmentCellWalk(const point2d& low, const point2d& high);

    // The pixel of the current cell.
    std::int64_t Column() const { return m_boxLow[0] + m_cell[0]; }
    std::int64_t Row() const { return m_boxLow[1] + m_cell[1]; }
    // Moves to the next cell the segment enters; false when the walk has ended.
    bool Advance();
    // Moves to the first cell the walk visits inside columns [0, width) and rows [0, height),
    // or past them; false when the walk ends before. Every cell skipped lies outside them.
    bool SkipToWindow(std::int64_t width);
    // True when every cell the walk still visits lies outside the window.
    bool PastWindow(std::int64_t width, std::int64_t height) const;

  private:
    static constexpr int kAxes = 3;
    // Boundary crossings are searched for in 0 < t < kStepSearchLimit along the segment.
    static constexpr double kStepSearchLimit = 2.0;

    int Direction(int axis) const { return m_delta[axis] > 0 ? 1 : -1; }
    // The parameter of the k-th boundary ahead of the current cell on `axis` (k = 0: next).
    double BoundaryT(int axis, std::int64_t k) const;
    bool CanStep(int axis) const;
    // How many boundaries ahead on `axis` are crossed before `t`, up to `limit`.
    std::int64_t CrossingsBefore(int axis, double t, std::int64_t limit) const;
    // The t at which the walk enters cell `target` on `axis` (coming from below it, or from
    // above it when the axis steps backwards).
    double EntryT(int axis, std::int64_t target) const;
    std::int64_t StepsInFrame(int axis) const;

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

double SegmentCellWalk::BoundaryT(int axis, std::int64_t k) const {
    const bool forward = m_delta[axis] > 0;
    const std::int64_t boundaryCell = m_cell[axis] + (forward ? 1 + k : -k);
    const double boundary = static_cast<double>(m_origin[axis] + boundaryCell * m_cellSize[axis]);
    return (boundary - m_from[axis]) / m_delta[axis];
}

bool SegmentCellWalk::CanStep(int axis) const {
    const double t = BoundaryT(axis, 0);
    return t > 0 && t < kStepSearchLimit;
}

bool SegmentCellWalk::Advance() {
    // The nearest boundary ahead on any axis, each measured from the segment's start; a later
    // axis wins a tie only when strictly nearer.
    int stepAxis = -1;
    double stepT = 0.0;
    for (int axis = 0; axis < kAxes; ++axis) {
        const double t = BoundaryT(axis, 0);
        if (t > 0 && t < kStepSearchLimit && (stepAxis < 0 || t < stepT)) {
            stepAxis = axis;
            stepT = t;
        }
    }
    if (stepAxis < 0 || stepT > 1.0)
        return false;
    m_cell[stepAxis] += Direction(stepAxis);
    return m_cell[stepAxis] >= 0 && m_cell[stepAxis] < m_cellCount[stepAxis];
}

// The boundaries' t grow with k (IEEE subtraction and division are monotone), so the count is
// found by bisection.
std::int64_t SegmentCellWalk::CrossingsBefore(int axis, double t, std::int64_t limit) const {
    if (!CanStep(axis))
        return 0;  // an axis that cannot take its next step never steps again
    std::int64_t crossed = 0, notCrossed = limit + 1;
    if (BoundaryT(axis, limit) < t)
        return limit + 1;
    while (notCrossed - crossed > 1) {
        const std::int64_t middle = crossed + (notCrossed - crossed) / 2;
        (BoundaryT(axis, middle - 1) < t ? crossed : notCrossed) = middle;
    }
    return crossed;
}

// How many steps `axis` can take before one leaves the frame and ends the walk.
std::int64_t SegmentCellWalk::StepsInFrame(int axis) const {
    const std::int64_t cell = m_cell[axis], count = m_cellCount[axis];
    if (Direction(axis) > 0)
        return cell + 1 >= 0 ? std::max<std::int64_t>(count - 1 - cell, 0) : 0;
    return cell - 1 < count ? std::max<std::int64_t>(cell, 0) : 0;
}

double SegmentCellWalk::EntryT(int axis, std::int64_t target) const {
    const std::int64_t boundaryCell = Direction(axis) > 0 ? target : target + 1;
    const double boundary = static_cast<double>(m_origin[axis] + boundaryCell * m_cellSize[axis]);
    return (boundary - m_from[axis]) / m_delta[axis];
}

bool SegmentCellWalk::PastWindow(std::int64_t width, std::int64_t height) const {
    const std::int64_t column = Column(), row = Row();
    const bool columnOut = column < 0 || column >= width;
    const bool rowOut = row < 0 || row >= height;
    // Rows never decrease; a column outside stays outside unless the walk steps towards it.
    if (row >= height || (rowOut && !CanStep(1)))
        return true;
    if (columnOut && !CanStep(0))
        return true;
    return Direction(0) > 0 ? column >= width : column < 0;
}

bool SegmentCellWalk::SkipToWindow(std::int64_t width) {
    // The walk cannot reach the window before it has entered both its first row and the
    // first column on its side.
    double entry = 0.0;
    if (Row() < 0)
        entry = EntryT(1, -m_boxLow[1]);
    const std::int64_t firstColumn = Direction(0) > 0 ? 0 : width - 1;
    if (Direction(0) > 0 ? Column() < firstColumn : Column() > firstColumn)
        entry = std::max(entry, EntryT(0, firstColumn - m_boxLow[0]));
    if (!(entry > 0.0))
        return true;
    if (entry > 1.0)
        return false;
    // Jump over every crossing before `entry`; a step that would leave the frame on the way
    // means the walk ended outside the window.
    for (int axis = 0; axis < kAxes; ++axis) {
        const std::int64_t room = StepsInFrame(axis);
        const std::int64_t steps = CrossingsBefore(axis, entry, room);
        if (steps > room)
            return false;
        m_cell[axis] += Direction(axis) * steps;
    }
    return true;
}

}  // namespace

bool PixelGrid::Intersect(std::array<point2d, 2> segment) const {
    if (segment[0].y > segment[1].y)
        std::swap(segment[0], segment[1]);
    const double dx = segment[1].x - segment[0].x;
    const double dy = segment[1].y - segment[0].y;
    const bool startCellOnly = dx * dx + dy * dy < kMinSegmentLengthSq;

    // Cells outside the grid cannot answer, so the walk skips to the grid and stops once it
    // has left it: its cost is bounded by the grid, whatever the segment's length.
    if (m_width <= 0 || m_height <= 0)
        return false;
    SegmentCellWalk walk(segment[0], segment[1]);
    if (!startCellOnly && !walk.SkipToWindow(m_width))
        return false;
    // Past the skip the walk crosses each row and column of the grid at most once, give or
    // take a cell at its edges. Only coordinates beyond the 32-bit range, whose boundaries
    // all share one t so that the skip cannot count them, would walk longer: the cap ends them.
    std::int64_t stepsLeft = std::int64_t{m_width} + m_height + kWalkSlack;
    do {
        const std::int64_t column = walk.Column();
        const std::int64_t row = walk.Row();
        if (column >= 0 && column < m_width && row >= 0 && row < m_height &&
            m_cells[row * m_width + column])
            return true;
        if (walk.PastWindow(m_width, m_height))
            return false;
    } while (!startCellOnly && --stepsLeft > 0 && walk.Advance());
    return false;
}

}  // namespace AU_MarkOperations::PolygonMarking
