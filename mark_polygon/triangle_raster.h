#pragma once

// The z-buffer picker's triangle rasterizer, read top to bottom in the order a triangle goes
// through it:
//   1. set-up: the top vertex and the left and right boundaries below it;
//   2. edge walks: where each edge starts, which rows it covers, its x (and depth) per row;
//   3. the row scan: both boundaries walked down the triangle's rows, row by row;
//   4. row clamping: the columns of one row inside the grid, and the depth step along it;
//   5. the pixel tests: draw into the depth buffer, finalize it into thresholds, test a
//      triangle against the thresholds, and the mark-through test against the region alone.
//
// Vertices are in grid pixels relative to the region's lower-left pixel (pixel centres on
// half-integers), z is depth in model length units, larger z nearer to the viewer. The
// boundaries are sampled once per row starting from each edge's own start, not at pixel
// centres, and every value is stepped by repeated float addition: the marks depend on that
// exact float sequence.
//
// Everything here is inline: the picker calls it once per triangle, and most triangles cover
// one or two pixels, so a call and its set-up would cost more than the pixels.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <velpick/host/point.h>
#include "polygon_marking/int32_truncation.h"
#include "polygon_marking/selection_raster.h"

namespace AU_MarkOperations::PolygonMarking {

/// Rows first … last inclusive; empty when first > last.
struct RowRange {
    std::int32_t first = 0;
    std::int32_t last = -1;

    bool Empty() const { return first > last; }
};

inline RowRange Intersect(RowRange a, RowRange b) {
    return {std::max(a.first, b.first), std::min(a.last, b.last)};
}

/// Every row of a raster of `height` rows.
inline RowRange AllRows(std::int32_t height) {
    return {0, height - 1};
}

namespace detail {

using point3f = VelSDK::Math::point3f;

// ---- 1. Triangle set-up ------------------------------------------------------------------

/// The top vertex and the ends of the triangle's left and right boundaries below it.
struct TriangleFrame {
    const point3f* top;
    const point3f* left;
    const point3f* right;
};

/// Whether p comes before q as the top vertex: smaller y, and on equal y the smaller x.
/// Evaluated without short-circuit branches, whose outcome is a coin toss per triangle.
inline bool IsHigher(const point3f& p, const point3f& q) {
    return (p.y < q.y) | ((p.y == q.y) & (p.x < q.x));
}

/// Picks the top vertex T (a against b, then the winner against c), takes the other two in
/// their cyclic order after T as U and V, and decides by the orientation test which of them
/// ends the left boundary.
inline TriangleFrame SetUpTriangle(const point3f& a, const point3f& b, const point3f& c) {
    TriangleFrame cyclic{&a, &b, &c};  // top, then the two after it
    if (IsHigher(b, a))
        cyclic = {&b, &c, &a};
    if (IsHigher(c, *cyclic.top))
        cyclic = {&c, &a, &b};
    const point3f& t = *cyclic.top;
    const point3f& u = *cyclic.left;
    const point3f& v = *cyclic.right;
    if ((v.y - t.y) * (u.x - t.x) > (u.y - t.y) * (v.x - t.x))
        return {&t, &v, &u};
    return {&t, &u, &v};
}

// ---- 2. Edge walks -------------------------------------------------------------------------

/// The rows of a raster as the edge walks clamp to them.
struct RasterRows {
    std::int32_t height;
    float limit;  // height − 0.5, computed in double: an edge starting here writes nothing

    explicit RasterRows(std::int32_t rows)
        : height(rows), limit(static_cast<float>(static_cast<double>(rows) - 0.5)) {}
};

/// One edge p → q (p.y ≤ q.y) walked down the rows: the rows it covers, and its x (and
/// depth) at the first of them, stepped once per row. The walk starts at p's own x and y (no
/// snapping to the row centre), or at y = 0 on the edge's extension when p lies below row 0;
/// it ends at q's row, clamped to the last row. An edge starting at or past the last row's
/// centre covers nothing; one ending below row 0 covers nothing when it carries depth, while
/// the depth-less walk of the region test still covers row 0.
template <bool kHasDepth>
struct EdgeWalk {
    RowRange rows;
    float x, z, dx, dz;

    EdgeWalk() = default;
    EdgeWalk(const point3f& p, const point3f& q, const RasterRows& raster)
        // A horizontal edge divides by zero; its infinite or NaN slope is used as it comes.
        : x(p.x),
          z(p.z),
          dx((q.x - p.x) / (q.y - p.y)),
          dz(kHasDepth ? (q.z - p.z) / (q.y - p.y) : 0.0f) {
        if (p.y >= raster.limit)
            return;
        float startY = p.y;
        if (p.y < 0.0f) {
            x = p.x - dx * p.y;
            z = p.z - dz * p.y;
            startY = 0.0f;
        }
        float endY = q.y;
        if (q.y >= raster.limit) {
            endY = static_cast<float>(raster.height - 1);
        } else if (q.y < 0.0f) {
            if constexpr (kHasDepth)
                return;
            endY = 0.0f;
        }
        // For finite coordinates both clamps are no-ops; they keep NaN ends inside the raster.
        rows = {std::max(TruncateToInt32(startY), 0),
                std::min(TruncateToInt32(endY), raster.height - 1)};
    }

    void Step() {
        x += dx;
        if constexpr (kHasDepth)
            z += dz;
    }

    /// Steps from the first row down to `row`, by the same additions as a walk through them.
    void AdvanceTo(std::int32_t row) {
        for (std::int32_t at = rows.first; at < row; ++at)
            Step();
    }
};

/// The rows a boundary made of an upper edge and the lower edge that follows it covers.
/// Their rows always meet or overlap (the lower edge starts on the row the upper one ends);
/// where they overlap the lower edge's values count.
inline RowRange BoundaryRows(RowRange upper, RowRange lower) {
    if (upper.Empty())
        return lower;
    if (lower.Empty())
        return upper;
    return {std::min(upper.first, lower.first), std::max(upper.last, lower.last)};
}

// ---- 3. The row scan ---------------------------------------------------------------------

/// Whether the three vertices lie wholly above the band's first row (when that is not row 0,
/// which edges below the raster may still reach) or wholly at or below the row after its
/// last: then no row of the band belongs to the triangle, and its set-up is spared. Compared
/// in double, exact for every row number; NaN is never outside.
inline bool OutsideBand(const point3f& a, const point3f& b, const point3f& c, RowRange band) {
    const double first = band.first, end = static_cast<double>(band.last) + 1.0;
    const auto above = [first](const point3f& p) { return static_cast<double>(p.y) < first; };
    const auto below = [end](const point3f& p) { return static_cast<double>(p.y) >= end; };
    return (band.first > 0 && above(a) && above(b) && above(c)) ||
           (below(a) && below(b) && below(c));
}

/// The smallest float not below `value`, so that for every float y, y ≥ value (or y < value)
/// reads the same when compared with it in float.
inline float FloatAtLeast(double value) {
    const float rounded = static_cast<float>(value);
    return static_cast<double>(rounded) < value ? std::nextafter(rounded, HUGE_VALF) : rounded;
}

/// The rows of `band` as vertex y bounds: a triangle whose three vertices have low ≤ y < high
/// lies in the band's rows and in the rows where no edge walk is clamped, so its boundaries
/// can be walked from its own vertices without the clamps.
struct BandBounds {
    float low, high;

    BandBounds(const RasterRows& raster, RowRange band)
        : low(FloatAtLeast(band.first)),
          high(std::min(raster.limit, FloatAtLeast(static_cast<double>(band.last) + 1.0))) {}

    bool Holds(const point3f& p) const { return (p.y >= low) & (p.y < high); }
};

/// A band of rows with what its scans compare against, computed once for all its triangles.
struct ScanBand {
    RasterRows raster;
    RowRange rows;
    BandBounds bounds;

    ScanBand(std::int32_t height, RowRange band)
        : raster(height), rows(band), bounds(raster, band) {}
};

template <bool kHasDepth>
using RowSpan = std::conditional_t<kHasDepth, _DepthSpan, _RegionSpan>;

template <bool kHasDepth>
inline RowSpan<kHasDepth> SpanBetween(const EdgeWalk<kHasDepth>& left,
                                      const EdgeWalk<kHasDepth>& right) {
    if constexpr (kHasDepth)
        return {left.x, right.x, left.z, right.z};
    else
        return {left.x, right.x};
}

/// The row scan of a triangle whose vertices lie inside the band and the unclamped rows (the
/// common triangle): both boundaries start at the top vertex, and the one that ends higher
/// hands over, on its end vertex's row, to the bottom edge. These are the values and rows the
/// clamped walks below give such a triangle, without their clamps.
template <bool kHasDepth, class RowVisitor>
[[gnu::always_inline]] inline bool ScanRowsInside(const point3f& a, const point3f& b,
                                                  const point3f& c, RowVisitor& visitRow) {
    const TriangleFrame frame = SetUpTriangle(a, b, c);
    const bool leftEndsFirst = frame.right->y > frame.left->y;
    const point3f& middle = leftEndsFirst ? *frame.left : *frame.right;
    const point3f& bottom = leftEndsFirst ? *frame.right : *frame.left;
    const auto walk = [](const point3f& p, const point3f& q) {
        EdgeWalk<kHasDepth> edge;
        edge.x = p.x;
        edge.z = p.z;
        edge.dx = (q.x - p.x) / (q.y - p.y);
        edge.dz = kHasDepth ? (q.z - p.z) / (q.y - p.y) : 0.0f;
        return edge;
    };
    EdgeWalk<kHasDepth> left = walk(*frame.top, *frame.left);
    EdgeWalk<kHasDepth> right = walk(*frame.top, *frame.right);

    // Rows are non-negative and inside the raster here, so the truncations are in range.
    std::int32_t row = TruncateToInt32(frame.top->y);
    const std::int32_t handover = TruncateToInt32(middle.y);
    const std::int32_t last = TruncateToInt32(bottom.y);
    for (; row < handover; ++row) {
        if (visitRow(row, SpanBetween(left, right)))
            return true;
        left.Step();
        right.Step();
    }
    (leftEndsFirst ? left : right) = walk(middle, bottom);
    for (; row <= last; ++row) {
        if (visitRow(row, SpanBetween(left, right)))
            return true;
        left.Step();
        right.Step();
    }
    return false;
}

/// Visits the rows of the triangle inside `band` top to bottom: `visitRow(row, span)` gets
/// each row's left and right boundary (x, and depth when kHasDepth), and stops the scan by
/// returning true (then so does this function).
///
/// The left boundary runs from the top vertex T to L, the right one from T to R; the one that
/// ends higher continues along the bottom edge, which takes over on its first row. The rows
/// scanned are trunc(T.y) … trunc(bottom y), clamped to the raster, where both boundaries
/// are walked. A band that starts inside the triangle steps the walks down to it by the same
/// additions, so a row gets the same values in any band. Always inlined, so that the row
/// visitor's loop and the caller's triangle loop are compiled as one.
template <bool kHasDepth, class RowVisitor>
[[gnu::always_inline]] inline bool ScanTriangleRows(const ScanBand& scan, const point3f& a,
                                                    const point3f& b, const point3f& c,
                                                    RowVisitor&& visitRow) {
    const BandBounds& bounds = scan.bounds;
    // All three tests, combined without a branch between them.
    const bool aInside = bounds.Holds(a), bInside = bounds.Holds(b), cInside = bounds.Holds(c);
    if (aInside & bInside & cInside)
        return ScanRowsInside<kHasDepth>(a, b, c, visitRow);
    const RasterRows& raster = scan.raster;
    const RowRange band = scan.rows;
    if (OutsideBand(a, b, c, band))
        return false;
    const TriangleFrame frame = SetUpTriangle(a, b, c);
    const bool leftEndsFirst = frame.right->y > frame.left->y;
    const point3f& middle = leftEndsFirst ? *frame.left : *frame.right;
    const point3f& bottom = leftEndsFirst ? *frame.right : *frame.left;
    EdgeWalk<kHasDepth> left(*frame.top, *frame.left, raster);
    EdgeWalk<kHasDepth> right(*frame.top, *frame.right, raster);
    const EdgeWalk<kHasDepth> bottomEdge(middle, bottom, raster);

    const std::int32_t topRow = TruncateToInt32(frame.top->y);
    const std::int32_t bottomRow = TruncateToInt32(bottom.y);
    if (bottomRow < topRow || bottomRow < 0 || topRow >= raster.height)
        return false;
    const RowRange leftRows = leftEndsFirst ? BoundaryRows(left.rows, bottomEdge.rows) : left.rows;
    const RowRange rightRows =
        leftEndsFirst ? right.rows : BoundaryRows(right.rows, bottomEdge.rows);
    const RowRange triangleRows{std::max(topRow, 0), std::min(bottomRow, raster.height - 1)};
    const RowRange rows = Intersect(Intersect(triangleRows, band), Intersect(leftRows, rightRows));
    if (rows.Empty())
        return false;

    EdgeWalk<kHasDepth>& ending = leftEndsFirst ? left : right;
    const std::int32_t handover = bottomEdge.rows.Empty() ? rows.last + 1 : bottomEdge.rows.first;
    if (handover <= rows.first)
        ending = bottomEdge;
    left.AdvanceTo(rows.first);
    right.AdvanceTo(rows.first);
    std::int32_t row = rows.first;
    for (const std::int32_t end = std::min(handover, rows.last + 1); row < end; ++row) {
        if (visitRow(row, SpanBetween(left, right)))
            return true;
        left.Step();
        right.Step();
    }
    if (row > rows.last)
        return false;
    if (handover > rows.first)
        ending = bottomEdge;
    for (; row <= rows.last; ++row) {
        if (visitRow(row, SpanBetween(left, right)))
            return true;
        left.Step();
        right.Step();
    }
    return false;
}

/// The same for one band given by its rows.
template <bool kHasDepth, class RowVisitor>
inline bool ScanTriangleRows(const RasterRows& raster, RowRange band, const point3f& a,
                             const point3f& b, const point3f& c, RowVisitor&& visitRow) {
    return ScanTriangleRows<kHasDepth>(ScanBand(raster.height, band), a, b, c, visitRow);
}

// ---- 4. Row clamping ---------------------------------------------------------------------

/// The columns one row of a scan visits, and the depth at the first of them.
struct RowColumns {
    std::int32_t first = 0;
    std::int32_t last = -1;
    float z = 0.0f;

    std::int32_t Count() const { return last - first + 1; }
};

/// The grid's width as the row clamps compare with it, converted once per scan rather than
/// once per row.
struct GridWidth {
    std::int32_t columns;
    float end;         // the width as a float
    float lastColumn;  // width − 1 as a float

    explicit GridWidth(std::int32_t width)
        : columns(width),
          end(static_cast<float>(width)),
          lastColumn(static_cast<float>(width - 1)) {}
};

/// Columns trunc(xLeft) … trunc(xRight) of a row whose left end is already inside the grid.
/// A sliver row whose ends crossed still covers the one column trunc(xRight), so that thin
/// triangles do not vanish. False when the row is skipped.
inline bool ClampRightEnd(float xLeft, float xRight, const GridWidth& width, RowColumns& columns) {
    if (xRight < 0.0f)
        return false;
    if (xRight >= width.end)
        xRight = width.lastColumn;
    columns.first = TruncateToInt32(xLeft);
    // The min only matters for widths beyond float precision, where width − 1 rounds up.
    columns.last = std::min(TruncateToInt32(xRight), width.columns - 1);
    if (columns.last < columns.first)
        columns.first = columns.last;
    return columns.first >= 0;  // fails only for NaN ends
}

/// The depth step per column of a depth span. It divides by the floored column difference, so
/// a span inside one column gets an infinite or NaN step, which only later columns would see.
inline float DepthStep(const _DepthSpan& span) {
    return (span.zRight - span.zLeft) / (std::floor(span.xRight) - std::floor(span.xLeft));
}

/// DepthStep for a row of several columns. When neither end of the span was clamped to the
/// grid, the floored ends are the row's first and last columns, so the floored difference is
/// the column count less one, exactly, and the two floors can be spared.
inline float RowDepthStep(const _DepthSpan& span, const RowColumns& columns,
                          const GridWidth& width) {
    if (span.xLeft >= 0.0f && span.xRight < width.end)
        return (span.zRight - span.zLeft) / static_cast<float>(columns.Count() - 1);
    return DepthStep(span);
}

/// The columns of a depth span, with the depth carried to column 0 when the span starts left
/// of the grid.
inline bool ClampDepthRow(const _DepthSpan& span, const GridWidth& width, RowColumns& columns) {
    float xLeft = span.xLeft;
    float zLeft = span.zLeft;
    if (xLeft < 0.0f) {
        zLeft -= DepthStep(span) * xLeft;
        xLeft = 0.0f;
    } else if (xLeft >= width.end) {
        return false;
    }
    columns.z = zLeft;
    return ClampRightEnd(xLeft, span.xRight, width, columns);
}

/// The columns of a region span.
inline bool ClampRegionRow(const _RegionSpan& span, const GridWidth& width, RowColumns& columns) {
    float xLeft = span.xLeft;
    if (xLeft < 0.0f) {
        xLeft = 0.0f;
    } else if (xLeft >= width.end) {
        return false;
    }
    return ClampRightEnd(xLeft, span.xRight, width, columns);
}

/// Visits the pixels of the triangle's rows in `band` that lie inside the grid:
/// `visitPixel(entry, inRegion, z)` gets the pixel's depth entry, whether it belongs to the
/// region, and the triangle's depth there. Stops early, returning true, when the visitor
/// returns true. The depth starts at the row's first column and steps once per column; the
/// step costs a division, so it is only computed for rows of several columns, which in a
/// dense mesh are the fewer.
template <class PixelVisitor>
[[gnu::always_inline]] inline bool ScanDepthPixels(_DepthRaster& raster, const ScanBand& band,
                                                   const point3f& a, const point3f& b,
                                                   const point3f& c, PixelVisitor&& visitPixel) {
    const GridWidth width(raster.m_width);
    _DepthEntry* depth = raster.m_depth.get();
    const bool* region = *raster.m_region;
    const auto visitRow = [&](std::int32_t row, const _DepthSpan& span) {
        RowColumns columns;
        if (!ClampDepthRow(span, width, columns))
            return false;
        const std::size_t first = static_cast<std::size_t>(row) * width.columns + columns.first;
        _DepthEntry* entry = depth + first;
        const bool* inRegion = region + first;
        float z = columns.z;
        if (visitPixel(*entry, *inRegion, z))
            return true;
        const std::int32_t count = columns.Count();
        if (count == 1)
            return false;
        const float step = RowDepthStep(span, columns, width);
        for (std::int32_t column = 1; column < count; ++column) {
            z += step;
            if (visitPixel(entry[column], inRegion[column], z))
                return true;
        }
        return false;
    };
    return ScanTriangleRows<true>(band, a, b, c, visitRow);
}

}  // namespace detail

// ---- 5. Pixel tests ------------------------------------------------------------------------

/// Draws the triangle into every region pixel of `band` its scan covers. A pixel takes the
/// triangle's depth and `owner` only when strictly nearer than what it holds, so of two
/// triangles at equal depth the one drawn first keeps the pixel. Returns whether the scan
/// reached a region pixel, won or not. An occluder draws as kNoOwner. Bands of rows are
/// disjoint in the raster, so several bands may be drawn at once.
[[gnu::always_inline]] inline bool _RasterizeTriangleDepth(
    _DepthRaster& raster, const detail::ScanBand& band, const VelSDK::Math::point3f& a,
    const VelSDK::Math::point3f& b, const VelSDK::Math::point3f& c, std::uint32_t owner) {
    bool covered = false;
    detail::ScanDepthPixels(raster, band, a, b, c, [&](_DepthEntry& entry, bool inRegion, float z) {
        if (!inRegion)
            return false;
        covered = true;
        if (z > entry.depth) {
            entry.depth = z;
            entry.owner = owner;
        }
        return false;
    });
    return covered;
}

/// The same over every row of the raster.
inline bool _RasterizeTriangleDepth(_DepthRaster& raster, const VelSDK::Math::point3f& a,
                                    const VelSDK::Math::point3f& b, const VelSDK::Math::point3f& c,
                                    std::uint32_t owner) {
    return _RasterizeTriangleDepth(
        raster, detail::ScanBand(raster.m_height, AllRows(raster.m_height)), a, b, c, owner);
}

/// Closes the depth pass in `rows`. In every region pixel the owner, if any, becomes visible:
/// `flags[owner]` gets kVisibleFlag when it has kCoveredFlag, loses it otherwise. Then the
/// owner is overwritten by the threshold depth − tolerance. A region pixel never drawn gets
/// threshold −FLT_MAX. Pixels outside the region are left as they are. `flags` is indexed by
/// owner number and must reach every owner drawn in those rows. With `reciprocalScale` k > 0 the
/// buffer holds reciprocal depths q = k/depth instead, and the threshold is the q of the depth
/// k/q + tolerance, computed in double and rounded to the nearest float.
void _FinalizeDepthRows(_DepthRaster& raster, std::uint8_t* flags, RowRange rows,
                        double reciprocalScale = 0.0);

/// Closes the depth pass over the whole raster.
void _FinalizeDepthRaster(_DepthRaster& raster, std::uint8_t* flags, double reciprocalScale = 0.0);

/// Whether the triangle reaches the front of a finalized raster: first a vertex lying in a
/// region pixel with z ≥ that pixel's threshold; when all three vertices lie in region pixels
/// and none passes, the triangle is hidden without further work; otherwise a span pixel of
/// the region with z > threshold (strictly).
inline bool _TestTriangleVisibility(_DepthRaster& raster, const VelSDK::Math::point3f& a,
                                    const VelSDK::Math::point3f& b,
                                    const VelSDK::Math::point3f& c) {
    // The three vertices are tested together, without early exits, so that their cells are
    // fetched at once; a vertex outside the grid reads cell 0 and is masked out.
    const std::uint32_t width = static_cast<std::uint32_t>(raster.m_width);
    const std::uint32_t height = static_cast<std::uint32_t>(raster.m_height);
    const bool* region = *raster.m_region;
    const _DepthEntry* depth = raster.m_depth.get();
    int verticesInRegion = 0;
    bool vertexReachesFront = false;
    for (const VelSDK::Math::point3f* vertex : {&a, &b, &c}) {
        const auto column = static_cast<std::uint32_t>(TruncateToInt32(vertex->x));
        const auto row = static_cast<std::uint32_t>(TruncateToInt32(vertex->y));
        const bool inGrid = column < width && row < height;
        const std::size_t cell = inGrid ? std::size_t{row} * width + column : 0;
        const bool inRegion = inGrid & region[cell];
        verticesInRegion += inRegion;
        vertexReachesFront |= inRegion & (vertex->z >= depth[cell].threshold);
    }
    if (vertexReachesFront)
        return true;
    if (verticesInRegion == 3)
        return false;

    return detail::ScanDepthPixels(raster,
                                   detail::ScanBand(raster.m_height, AllRows(raster.m_height)), a,
                                   b, c, [](const _DepthEntry& entry, bool inRegion, float z) {
                                       return inRegion && z > entry.threshold;
                                   });
}

/// The mark-through test: true when the triangle's scan reaches a set region pixel. Same
/// rows and columns as the depth scan, except that an edge ending below row 0 still covers
/// row 0.
inline bool _TriangleTouchesRegion(_RegionRaster& raster, const VelSDK::Math::point3f& a,
                                   const VelSDK::Math::point3f& b, const VelSDK::Math::point3f& c) {
    const detail::GridWidth width(raster.m_width);
    const bool* region = *raster.m_region;
    return detail::ScanTriangleRows<false>(
        detail::ScanBand(raster.m_height, AllRows(raster.m_height)), a, b, c,
        [&](std::int32_t row, const _RegionSpan& span) {
            detail::RowColumns columns;
            if (!detail::ClampRegionRow(span, width, columns))
                return false;
            const bool* first =
                region + static_cast<std::size_t>(row) * width.columns + columns.first;
            return std::find(first, first + columns.Count(), true) != first + columns.Count();
        });
}

}  // namespace AU_MarkOperations::PolygonMarking
