#pragma once

// Triangle set-up, edge walks and row clamping shared by the depth pass, the visibility test
// and the region test. A pixel-space triangle is split at its top vertex into a left and a
// right boundary; the edge walks write, per row, the x (and depth) of each boundary into the
// left and right halves of the raster's span records, and the span scans then visit the
// columns between them. ScanTriangleRows hands each row's boundaries to its visitor, walking
// the common triangle in registers with the very values the records would hold.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include <velpick/host/point.h>
#include "polygon_marking/int32_truncation.h"
#include "polygon_marking/selection_raster.h"

namespace AU_MarkOperations::PolygonMarking::detail {

using AU_MarkOperations::PolygonMarking::TruncateToInt32;

/// Rows first … last inclusive; empty when first > last.
struct RowRange {
    std::int32_t first = 0;
    std::int32_t last = -1;

    bool Empty() const { return first > last; }
};

/// The smallest range holding both (the rows of two consecutive walks along one boundary).
inline RowRange Hull(RowRange a, RowRange b) {
    if (a.Empty())
        return b;
    if (b.Empty())
        return a;
    return {std::min(a.first, b.first), std::max(a.last, b.last)};
}

inline RowRange Intersect(RowRange a, RowRange b) {
    return {std::max(a.first, b.first), std::min(a.last, b.last)};
}

/// The top vertex and the ends of the triangle's left and right boundaries below it.
struct TriangleFrame {
    const VelSDK::Math::point3f* top;
    const VelSDK::Math::point3f* left;
    const VelSDK::Math::point3f* right;
};

/// Whether p comes before q as the top vertex: smaller y, and on equal y the smaller x.
/// Evaluated without short-circuit branches, whose outcome is a coin toss per triangle.
inline bool IsHigher(const VelSDK::Math::point3f& p, const VelSDK::Math::point3f& q) {
    return (p.y < q.y) | ((p.y == q.y) & (p.x < q.x));
}

/// Picks the top vertex T (a against b, then the winner against c), takes the other two in
/// their cyclic order after T as U and V, and decides by the orientation test which of them
/// ends the left boundary.
inline TriangleFrame SetUpTriangle(const VelSDK::Math::point3f& a, const VelSDK::Math::point3f& b,
                                   const VelSDK::Math::point3f& c) {
    TriangleFrame cyclic{&a, &b, &c};  // top, then the two after it
    if (IsHigher(b, a))
        cyclic = {&b, &c, &a};
    if (IsHigher(c, *cyclic.top))
        cyclic = {&c, &a, &b};
    const VelSDK::Math::point3f& t = *cyclic.top;
    const VelSDK::Math::point3f& u = *cyclic.left;
    const VelSDK::Math::point3f& v = *cyclic.right;
    if ((v.y - t.y) * (u.x - t.x) > (u.y - t.y) * (v.x - t.x))
        return {&t, &v, &u};
    return {&t, &u, &v};
}

enum class SpanHalf { kLeft, kRight };

template <SpanHalf half>
inline void StoreEdge(_DepthSpan& span, float x, float z) {
    if constexpr (half == SpanHalf::kLeft) {
        span.xLeft = x;
        span.zLeft = z;
    } else {
        span.xRight = x;
        span.zRight = z;
    }
}

template <SpanHalf half>
inline void StoreEdge(_RegionSpan& span, float x, float) {
    if constexpr (half == SpanHalf::kLeft) {
        span.xLeft = x;
    } else {
        span.xRight = x;
    }
}

/// Walks the edge p → q (p.y ≤ q.y) down the rows of the raster, writing x (and depth) into
/// one half of each row's span record, and returns the rows written. The walk starts at p's
/// own x and y (no snapping to the row centre), or at y = 0 on the edge's extension when p
/// lies below row 0; it ends at q's row, clamped to the last row. An edge ending below row 0
/// writes nothing into depth spans, while region spans still get row 0.
template <SpanHalf half, class Span>
RowRange WalkEdge(Span* spans, std::int32_t height, const VelSDK::Math::point3f& p,
                  const VelSDK::Math::point3f& q) {
    constexpr bool kHasDepth = std::is_same_v<Span, _DepthSpan>;
    // A horizontal edge divides by zero; its infinite or NaN slope is used as it comes.
    const float dx = (q.x - p.x) / (q.y - p.y);
    const float dz = kHasDepth ? (q.z - p.z) / (q.y - p.y) : 0.0f;
    const float limit = static_cast<float>(static_cast<double>(height) - 0.5);
    if (p.y >= limit)
        return {};

    float x = p.x, z = p.z, startY = p.y;
    if (p.y < 0.0f) {
        x = p.x - dx * p.y;
        z = p.z - dz * p.y;
        startY = 0.0f;
    }
    float endY = q.y;
    if (q.y >= limit) {
        endY = static_cast<float>(height - 1);
    } else if (q.y < 0.0f) {
        if constexpr (kHasDepth)
            return {};
        endY = 0.0f;
    }

    // For finite coordinates both clamps are no-ops; they keep NaN ends inside the records.
    const RowRange rows{std::max(TruncateToInt32(startY), 0),
                        std::min(TruncateToInt32(endY), height - 1)};
    Span* span = spans + rows.first;
    for (std::int32_t row = rows.first; row <= rows.last; ++row, ++span) {
        StoreEdge<half>(*span, x, z);
        x += dx;
        z += dz;
    }
    return rows;
}

/// Sets up the triangle and walks its three edges into the span records. Returns the rows
/// top … bottom (clamped to the raster) whose left and right halves were both written for
/// this triangle; rows a walk skipped hold another triangle's values and are not scanned.
template <class Span>
RowRange WalkTriangle(Span* spans, std::int32_t height, const VelSDK::Math::point3f& a,
                      const VelSDK::Math::point3f& b, const VelSDK::Math::point3f& c) {
    const TriangleFrame frame = SetUpTriangle(a, b, c);
    RowRange left = WalkEdge<SpanHalf::kLeft>(spans, height, *frame.top, *frame.left);
    RowRange right = WalkEdge<SpanHalf::kRight>(spans, height, *frame.top, *frame.right);
    float bottomY;
    if (frame.right->y > frame.left->y) {
        left = Hull(left, WalkEdge<SpanHalf::kLeft>(spans, height, *frame.left, *frame.right));
        bottomY = frame.right->y;
    } else {
        right = Hull(right, WalkEdge<SpanHalf::kRight>(spans, height, *frame.right, *frame.left));
        bottomY = frame.left->y;
    }

    const std::int32_t top = TruncateToInt32(frame.top->y);
    const std::int32_t bottom = TruncateToInt32(bottomY);
    if (bottom < top || bottom < 0 || top >= height)
        return {};
    const RowRange rows{std::max(top, 0), std::min(bottom, height - 1)};
    return Intersect(rows, Intersect(left, right));
}

/// One boundary walked in registers: x and depth at the current row and their steps per row,
/// computed as the span walk computes them.
template <bool kHasDepth>
struct BoundaryWalk {
    float x, z, dx, dz;

    BoundaryWalk(const VelSDK::Math::point3f& p, const VelSDK::Math::point3f& q)
        : x(p.x),
          z(p.z),
          dx((q.x - p.x) / (q.y - p.y)),
          dz(kHasDepth ? (q.z - p.z) / (q.y - p.y) : 0.0f) {}

    void Step() {
        x += dx;
        if constexpr (kHasDepth)
            z += dz;
    }
};

/// The span record of one row from the two boundaries.
inline _DepthSpan RowSpan(const BoundaryWalk<true>& left, const BoundaryWalk<true>& right) {
    return {left.x, right.x, left.z, right.z};
}

inline _RegionSpan RowSpan(const BoundaryWalk<false>& left, const BoundaryWalk<false>& right) {
    return {left.x, right.x};
}

/// Visits the rows of the triangle's span scan top to bottom: `visitRow(row, span)` gets each
/// row's boundaries exactly as WalkTriangle leaves them in the span records, and stops the scan
/// by returning true (then so does this function).
///
/// A triangle whose three vertices lie in rows 0 … height − 1 (the common case) is walked in
/// registers: both boundaries start at the top vertex, and the one that ends higher hands over,
/// at its end vertex's row, to the bottom edge, which the record walk writes last and which
/// therefore owns that row. Other triangles, whose walks are clamped at the raster's first or
/// last row or have non-finite rows, go through the span records. Always inlined, so that the
/// row visitor's loop and the caller's triangle loop are compiled as one.
template <class Span, class RowVisitor>
[[gnu::always_inline]] inline bool ScanTriangleRows(Span* spans, std::int32_t height,
                                                    const VelSDK::Math::point3f& a,
                                                    const VelSDK::Math::point3f& b,
                                                    const VelSDK::Math::point3f& c,
                                                    RowVisitor&& visitRow) {
    constexpr bool kHasDepth = std::is_same_v<Span, _DepthSpan>;
    const float limit = static_cast<float>(static_cast<double>(height) - 0.5);
    const auto inRows = [limit](const VelSDK::Math::point3f& p) {
        return p.y >= 0.0f && p.y < limit;
    };
    if (!(inRows(a) && inRows(b) && inRows(c))) {
        const RowRange rows = WalkTriangle(spans, height, a, b, c);
        for (std::int32_t row = rows.first; row <= rows.last; ++row) {
            if (visitRow(row, spans[row]))
                return true;
        }
        return false;
    }

    const TriangleFrame frame = SetUpTriangle(a, b, c);
    const bool leftEndsFirst = frame.right->y > frame.left->y;
    const VelSDK::Math::point3f& middle = leftEndsFirst ? *frame.left : *frame.right;
    const VelSDK::Math::point3f& bottom = leftEndsFirst ? *frame.right : *frame.left;
    BoundaryWalk<kHasDepth> left(*frame.top, *frame.left), right(*frame.top, *frame.right);
    const BoundaryWalk<kHasDepth> bottomEdge(middle, bottom);

    // Rows are non-negative and below the row count here, so the casts truncate in range.
    std::int32_t row = static_cast<std::int32_t>(frame.top->y);
    const std::int32_t handover = static_cast<std::int32_t>(middle.y);
    const std::int32_t last = static_cast<std::int32_t>(bottom.y);
    for (; row < handover; ++row, left.Step(), right.Step()) {
        if (visitRow(row, RowSpan(left, right)))
            return true;
    }
    (leftEndsFirst ? left : right) = bottomEdge;
    for (; row <= last; ++row, left.Step(), right.Step()) {
        if (visitRow(row, RowSpan(left, right)))
            return true;
    }
    return false;
}

/// The columns one row of a span scan visits, and the depth at the first of them.
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

}  // namespace AU_MarkOperations::PolygonMarking::detail
